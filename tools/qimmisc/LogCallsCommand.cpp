// "qimmisc log calls": the ENTRY call tree of a thread, or of every thread
// one after another, each call with its own time from its "<ret Time:" line.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <unordered_map>

#include "CallTracker.h"
#include "LogCommands.h"
#include "LogText.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

constexpr std::size_t kArgumentsLength = 120;
constexpr int kMaxIndent = 64;  // deeper calls are marked with their depth

struct CallsArguments {
  std::vector<std::string> files;
  std::string thread;
  long long minUsec = 0;
  std::string function;
};

// A thread's calls are held from an outermost call's entry to its return,
// when its tree is known whole and written out. Calls shorter than
// --min-usec leave at their return with their callees (which took no
// longer), so what is held is bounded by what will be printed, never by the
// lines read.
class CallTree : public LogLineHandler, private CallListener {
 public:
  CallTree(const CallsArguments& args, const std::uint64_t* thread)
      : args_(args), calls_(this, false, thread) {}
  void onLine(const ReadLine& line) override { calls_.onLine(line); }
  void onEnd() override { calls_.onEnd(); }

  void print(std::ostream& out) const {
    bool any = false;
    for (const std::uint64_t thread : order_) {
      const Tree& tree = trees_.at(thread);
      if (tree.printed.empty()) continue;
      out << (any ? "\n" : "") << "Thread " << threadText(thread) << '\n' << tree.printed;
      any = true;
    }
    if (!any) out << "No ENTRY calls in the input match.\n";
  }

 private:
  struct Call {
    std::uint32_t function;
    int depth;
    long long usec = -1;  // -1 until it returns
    Unreturned why = Unreturned::EndOfInput;
    std::string site, arguments;
  };
  struct Tree {
    std::vector<Call> held;         // entry order
    std::vector<std::size_t> open;  // indexes into held
    std::string printed;
  };

  Tree& treeOf(std::uint64_t thread) {
    const auto [it, added] = trees_.try_emplace(thread);
    if (added) order_.push_back(thread);
    return it->second;
  }

  void onEnter(std::uint64_t thread, const OpenCall& call, const ReadLine& line) override {
    Tree& tree = treeOf(thread);
    Call held{call.function, call.depth, -1, Unreturned::EndOfInput,
              std::string(line.fields.file) + ":" + std::to_string(line.fields.line),
              std::string(line.fields.text.substr(0, kArgumentsLength))};
    tree.open.push_back(tree.held.size());
    tree.held.push_back(std::move(held));
  }

  void onReturn(std::uint64_t thread, const OpenCall&, long long usec, const ReadLine&) override {
    Tree& tree = treeOf(thread);
    const std::size_t index = tree.open.back();
    tree.open.pop_back();
    if (usec < args_.minUsec) {
      tree.held.resize(index);  // it and its callees
    } else {
      tree.held[index].usec = usec;
    }
    if (tree.open.empty()) write(tree);
  }

  void onUnreturned(std::uint64_t thread, const OpenCall&, Unreturned why) override {
    Tree& tree = treeOf(thread);
    tree.held[tree.open.back()].why = why;
    tree.open.pop_back();
    if (tree.open.empty()) write(tree);
  }

  // Writes the held tree: with --function only the matching calls and their
  // callees.
  void write(Tree& tree) {
    int matchDepth = -1;
    for (const Call& call : tree.held) {
      const std::string& name = calls_.functionName(call.function);
      if (matchDepth >= 0 && call.depth <= matchDepth) matchDepth = -1;
      if (matchDepth < 0 && !args_.function.empty()) {
        if (name.find(args_.function) == std::string::npos) continue;
        matchDepth = call.depth;
      }
      std::string& out = tree.printed;
      // A depth a damaged line claims must not cost its width in blanks.
      const int indent = call.depth < 0 ? 0 : call.depth > kMaxIndent ? kMaxIndent : call.depth;
      out.append(2 * static_cast<std::size_t>(indent), ' ');
      if (call.depth > kMaxIndent) out += "[depth " + std::to_string(call.depth) + "] ";
      out += name + " (" + call.site + ")  ";
      if (call.usec >= 0) {
        out += std::to_string(call.usec) + " usec";
      } else {
        out += call.why == Unreturned::EndOfInput ? "open: no return line before the end"
                                                   : "open: its return line is missing";
      }
      if (!call.arguments.empty()) out += "  " + call.arguments;
      out += '\n';
    }
    tree.held.clear();
  }

  const CallsArguments& args_;
  CallTracker calls_;
  std::unordered_map<std::uint64_t, Tree> trees_;
  std::vector<std::uint64_t> order_;  // threads as they first appeared
};

int runCalls(const CallsArguments& args) {
  QIM_ENTRY("files=" << args.files.size() << " thread=" << args.thread);
  std::uint64_t thread = 0;
  if (!args.thread.empty() && !threadOption(args.thread, thread)) return kExitUsage;
  CallTree tree(args, args.thread.empty() ? nullptr : &thread);
  LogReader reader;
  const int rc = readLogFiles(args.files, tree, reader);
  tree.print(std::cout);
  return rc;
}

}  // namespace

void addLogCallsCommand(CLI::App& log, CommandBody& chosen) {
  CLI::App* calls = log.add_subcommand("calls", "The ENTRY call tree, each call with its time");
  const auto args = std::make_shared<CallsArguments>();
  addFilesOption(*calls, args->files);
  addThreadOption(*calls, args->thread);
  calls->add_option("--min-usec", args->minUsec, "only calls of at least N microseconds")
      ->type_name("N")->check(CLI::NonNegativeNumber);
  calls->add_option("--function", args->function, "only calls whose function name holds TEXT, with their callees")
      ->type_name("TEXT");
  calls->footer(
      "Each call on a line of its own, indented by its depth: function, site,\n"
      "microseconds from its \"<ret Time:\" line and its arguments. Threads one\n"
      "after another, in the order they first appear. A call without a return line\n"
      "is shown as open; --min-usec keeps open calls, whose time is unknown.");
  calls->callback([&chosen, args] { chosen = [args] { return runCalls(*args); }; });
}

}  // namespace qimtool
