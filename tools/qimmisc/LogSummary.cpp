#include "LogSummary.h"

#include <algorithm>
#include <iomanip>

#include "LogText.h"

namespace qimtool {

using QIM::DbgMsg::DepthMarker;
using QIM::DbgMsg::TraceLineKind;

namespace {

constexpr std::size_t kTextLength = 200;

bool slower(const auto& a, const auto& b) { return a.usec > b.usec; }

const char* whyText(Unreturned why) {
  switch (why) {
    case Unreturned::EndOfInput: return "still open at the end of the input";
    case Unreturned::NewEntry: return "a later call at its depth came first";
    case Unreturned::OuterReturn: return "its caller returned first";
  }
  return "";
}

std::string cut(std::string_view text) {
  std::string out(text.substr(0, kTextLength));
  if (text.size() > kTextLength) out += "...";
  return out;
}

const char* plural(std::uint64_t n, const char* one, const char* many) { return n == 1 ? one : many; }

}  // namespace

LogSummary::LogSummary() : calls_(this) {}

void LogSummary::onLine(const ReadLine& line) {
  if (line.role == LineRole::StackInfo) {
    ++stackInfoLines_;
    if (follow_ != Follow::None) followBackTrace(line);
    return;
  }
  if (line.role != LineRole::Library) return;
  ++libraryLines_;
  count(line);
  if (follow_ != Follow::None) followBackTrace(line);
  switch (line.fields.kind) {
    case TraceLineKind::Assertion: assertion(line); break;
    case TraceLineKind::Throw: thrown(line); break;
    case TraceLineKind::BackTraceHead: ++backTraces_; break;
    case TraceLineKind::DelayedTraceHead: ++delayedTraces_; break;
    case TraceLineKind::Frame: ++frames_; break;
    default: break;
  }
  calls_.onLine(line);
}

void LogSummary::onEnd() { calls_.onEnd(); }

void LogSummary::count(const ReadLine& line) {
  const QIM::DbgMsg::TraceLine& fields = line.fields;
  if (!QIM::DbgMsg::hasHeader(fields.kind)) return;
  if (lastChannel_ >= channels_.size() || !sameText(channels_[lastChannel_].first, fields.channel)) {
    lastChannel_ = 0;
    while (lastChannel_ < channels_.size() && !sameText(channels_[lastChannel_].first, fields.channel)) {
      ++lastChannel_;
    }
    if (lastChannel_ == channels_.size()) channels_.emplace_back(fields.channel, 0);
  }
  ++channels_[lastChannel_].second;
  if (lastThread_ >= threads_.size() || threads_[lastThread_].first != fields.thread) {
    const auto [it, added] = threadIndex_.try_emplace(fields.thread, threads_.size());
    if (added) threads_.emplace_back(fields.thread, 0);
    lastThread_ = it->second;
  }
  ++threads_[lastThread_].second;
  if (fields.marker == DepthMarker::Arrows) ++arrows_;
  if (fields.marker == DepthMarker::Brackets) ++brackets_;
}

LogSummary::Site& LogSummary::site(std::vector<Site>& sites, SiteTable& table,
                                   const ReadLine& line) {
  const QIM::DbgMsg::TraceLine& fields = line.fields;
  std::string key(fields.file);
  key += ':';
  key += std::to_string(fields.line);
  key += ' ';
  key += fields.function;
  const auto [it, added] = table.try_emplace(std::move(key), sites.size());
  if (added) {
    Site fresh;
    fresh.file = fields.file;
    fresh.function = fields.function;
    fresh.line = fields.line;
    fresh.at = line.at;
    // The calls the ENTRY lines show open on this thread at the time.
    std::string open;
    for (const OpenCall& call : calls_.openCalls(fields.thread)) {
      open += (open.empty() ? "" : " > ") + calls_.functionName(call.function);
    }
    if (!open.empty()) fresh.example.push_back("ENTRY calls open: " + open);
    sites.push_back(std::move(fresh));
  }
  Site& found = sites[it->second];
  ++found.count;
  return found;
}

void LogSummary::assertion(const ReadLine& line) {
  ++assertionCount_;
  Site& found = site(assertions_, assertionSites_, line);
  if (found.count != 1) return;
  found.what = '"';
  found.what += cut(line.fields.condition);
  found.what += '"';
  if (!line.fields.message.empty()) found.what += " : " + cut(line.fields.message);
  // Its back-trace is printed next, from the same thread.
  follow_ = Follow::Head;
  tracedSite_ = static_cast<std::size_t>(&found - assertions_.data());
  tracedThread_ = line.fields.thread;
}

void LogSummary::thrown(const ReadLine& line) {
  ++throwCount_;
  Site& found = site(throws_, throwSites_, line);
  if (found.count == 1) found.what = cut(line.fields.text);
}

void LogSummary::followBackTrace(const ReadLine& line) {
  const TraceLineKind kind = line.fields.kind;
  std::vector<std::string>& example = assertions_[tracedSite_].example;
  if (follow_ == Follow::Head) {
    if (kind == TraceLineKind::BackTraceHead && line.fields.thread == tracedThread_) {
      follow_ = Follow::Lines;
      example.emplace_back(cut(line.text));
    } else if (QIM::DbgMsg::hasHeader(kind) && line.fields.thread == tracedThread_ &&
               kind != TraceLineKind::Assertion) {
      follow_ = Follow::None;  // this thread went on without one
    }
    return;
  }
  const bool partOfTrace = line.role == LineRole::StackInfo || kind == TraceLineKind::Frame ||
                           kind == TraceLineKind::AdditionalInfo ||
                           kind == TraceLineKind::DelayedTraceHead;
  if (!partOfTrace) {
    follow_ = Follow::None;
  } else if (example.size() < kTraceLines) {
    example.emplace_back(cut(line.text));
  }
}

void LogSummary::onReturn(std::uint64_t thread, const OpenCall& call, long long usec,
                          const ReadLine& line) {
  if (slowest_.size() == kSlowest && usec <= slowest_.front().usec) return;
  Call slow;
  slow.usec = usec;
  slow.function = call.function;
  slow.thread = thread;
  slow.at = line.at;
  slow.depth = call.depth;
  if (slowest_.size() == kSlowest) {
    std::pop_heap(slowest_.begin(), slowest_.end(), slower<Call, Call>);
    slowest_.pop_back();
  }
  slowest_.push_back(slow);
  std::push_heap(slowest_.begin(), slowest_.end(), slower<Call, Call>);
}

void LogSummary::onUnreturned(std::uint64_t thread, const OpenCall& call, Unreturned why) {
  ++unreturnedCount_[static_cast<int>(why)];
  if (unreturned_.size() >= kListed) return;
  Call open;
  open.function = call.function;
  open.thread = thread;
  open.at = call.at;
  open.why = why;
  open.depth = call.depth;
  unreturned_.push_back(open);
}

void LogSummary::onOrphanReturn(std::uint64_t thread, const ReadLine& line) {
  if (orphans_.size() >= kListed) return;
  Call orphan;
  orphan.thread = thread;
  orphan.at = line.at;
  orphan.usec = line.fields.usec;
  orphan.depth = line.fields.depth;
  orphans_.push_back(orphan);
  orphanNames_.emplace_back(line.fields.function);
}

void LogSummary::printSites(std::ostream& out, const LogReader& reader, const char* title,
                            const std::vector<Site>& sites) const {
  std::uint64_t total = 0;
  for (const Site& s : sites) total += s.count;
  out << title << ": " << total << " at " << sites.size() << plural(sites.size(), " site\n", " sites\n");
  std::vector<const Site*> order;
  for (const Site& s : sites) order.push_back(&s);
  std::stable_sort(order.begin(), order.end(),
                   [](const Site* a, const Site* b) { return a->count > b->count; });
  for (const Site* s : order) {
    out << "  " << s->count << "x  " << s->file << ':' << s->line << " (" << s->function << ")  "
        << s->what << "\n      first at " << positionText(reader, s->at) << '\n';
    for (const std::string& line : s->example) out << "        " << line << '\n';
  }
}

void LogSummary::printCalls(std::ostream& out, const LogReader& reader) const {
  out << "Calls: " << calls_.returned() << " returned, " << calls_.unreturned()
      << " without a return line, " << calls_.orphanReturns()
      << " returns whose ENTRY line is not in the input\n";
  std::vector<Call> slowest = slowest_;
  std::sort(slowest.begin(), slowest.end(), slower<Call, Call>);
  if (!slowest.empty()) out << "Slowest calls:\n";
  for (const Call& c : slowest) {
    out << "  " << std::setw(12) << c.usec << " usec  " << calls_.functionName(c.function)
        << "  thread " << threadText(c.thread) << ", returned at " << positionText(reader, c.at)
        << '\n';
  }
  if (calls_.unreturned() > 0) {
    out << "Calls without a return line (open; their time is unknown): " << calls_.unreturned()
        << " (" << unreturnedCount_[0] << " open at the end, " << unreturnedCount_[1] + unreturnedCount_[2]
        << " whose return line is missing)\n";
  }
  for (const Call& c : unreturned_) {
    out << "  thread " << threadText(c.thread) << "  depth " << c.depth << "  "
        << calls_.functionName(c.function) << ", entered at " << positionText(reader, c.at)
        << ": " << whyText(c.why) << '\n';
  }
  if (calls_.orphanReturns() > 0) {
    out << "Returns without their ENTRY line: " << calls_.orphanReturns() << '\n';
  }
  for (std::size_t i = 0; i < orphans_.size(); ++i) {
    out << "  thread " << threadText(orphans_[i].thread) << "  " << orphanNames_[i] << "  "
        << orphans_[i].usec << " usec at " << positionText(reader, orphans_[i].at) << '\n';
  }
}

void LogSummary::print(std::ostream& out, const LogReader& reader) const {
  std::uint64_t bytes = 0, lines = 0, torn = 0, overlong = 0;
  for (const FileCounts& file : reader.files()) {
    bytes += file.bytes;
    lines += file.lines;
    torn += file.torn;
    overlong += file.overlong;
  }
  out << "Input: " << reader.files().size() << plural(reader.files().size(), " file, ", " files, ")
      << bytes << " bytes, " << lines << " lines\n";
  for (const FileCounts& file : reader.files()) {
    out << "  " << file.name << ": ";
    if (!file.readable) {
      out << "cannot be read\n";
    } else if (file.advancedUserOnly()) {
      out << "an advanced-user file (no headers): " << file.lines
          << " lines of the user's own text, none of them the library's\n";
    } else {
      out << file.lines << " lines, " << file.library << " from the library\n";
    }
  }
  out << "Lines per channel:\n";
  for (const auto& [name, n] : channels_) out << "  " << std::left << std::setw(16) << name << std::right << ' ' << n << '\n';
  out << "Lines per thread:\n";
  for (const auto& [thread, n] : threads_) out << "  " << std::left << std::setw(16) << threadText(thread) << std::right << ' ' << n << '\n';
  out << "Back-traces: " << backTraces_ << ", delayed stack traces: " << delayedTraces_
      << ", their frame lines: " << frames_ << ", lines of a host's stack information: "
      << stackInfoLines_ << '\n';
  if (arrows_ + brackets_ > 0) {
    out << "ENTRY depth shown as: " << (arrows_ ? "arrows" : "") << (arrows_ && brackets_ ? " and " : "")
        << (brackets_ ? "numbers in brackets" : "") << '\n';
  }
  printCalls(out, reader);
  printSites(out, reader, "Assertion failures", assertions_);
  printSites(out, reader, "Throws", throws_);
  out << "Lines not read: " << reader.skipped() << " (not from the library";
  if (overlong) out << ", " << overlong << " longer than " << LogReader::kMaxLine << " bytes";
  out << "); torn last lines: " << torn << '\n';
  for (const SkippedLine& skipped : reader.examples()) {
    if (reader.files()[skipped.at.file].advancedUserOnly()) continue;
    out << "  " << positionText(reader, skipped.at)
        << (skipped.role == LineRole::Torn ? " (torn): " : ": ") << skipped.text << '\n';
  }
}

}  // namespace qimtool
