#include "FlameGraph.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace qimtool {

namespace {

constexpr double kWidth = 1200;    // pixels of the whole picture
constexpr double kMargin = 10;
constexpr double kFrameHeight = 16;
constexpr double kTop = 44;        // room for the title lines
constexpr double kMinWidth = 0.1;  // narrower boxes (and theirs above) are left out
constexpr double kCharWidth = 6.6; // of the 11-pixel label font

// Length of the UTF-8 sequence at `s`, or 0 when it is not a valid one.
std::size_t utf8Length(std::string_view s) {
  const auto b = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned char lead = b(0);
  std::size_t n = lead < 0x80 ? 1 : lead >= 0xC2 && lead < 0xE0 ? 2 : lead >= 0xE0 && lead < 0xF0 ? 3
                  : lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
  if (n == 0 || n > s.size()) return 0;
  for (std::size_t i = 1; i < n; ++i) {
    if ((b(i) & 0xC0) != 0x80) return 0;
  }
  // Overlong forms, surrogates and code points above U+10FFFF.
  if ((lead == 0xE0 && b(1) < 0xA0) || (lead == 0xED && b(1) >= 0xA0) ||
      (lead == 0xF0 && b(1) < 0x90) || (lead == 0xF4 && b(1) >= 0x90)) {
    return 0;
  }
  return n;
}

// A warm colour that stays the same for a function from one drawing to the next.
std::string colourOf(std::string_view name) {
  std::uint32_t hash = 2166136261u;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  char colour[32];
  std::snprintf(colour, sizeof colour, "rgb(%u,%u,%u)", 205 + hash % 50, 80 + (hash >> 8) % 130,
                (hash >> 16) % 60);
  return colour;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

class Drawing {
 public:
  explicit Drawing(const CallTracker& calls)
      : calls_(calls), children_(calls.nodeCount()), width_(calls.nodeCount(), 0) {
    // A node is made after its parent: children come later in id order.
    for (std::uint32_t id = 1; id < calls.nodeCount(); ++id) children_[calls.node(id).parent].push_back(id);
    for (std::uint32_t id = static_cast<std::uint32_t>(calls.nodeCount()); id-- > 1;) {
      // A call without a return line has no time of its own; its returned
      // callees still give it width.
      width_[id] = std::max<double>(width_[id], static_cast<double>(calls.node(id).totalUsec));
      width_[calls.node(id).parent] += width_[id];
    }
    for (auto& list : children_) {
      std::sort(list.begin(), list.end(), [&](std::uint32_t a, std::uint32_t b) {
        return calls.functionName(calls.node(a).function) < calls.functionName(calls.node(b).function);
      });
    }
  }

  double total() const { return width_[0]; }

  // Walks the boxes wide enough to draw, callers before callees, with an
  // explicit stack: a file's nesting may be deeper than the program's stack.
  template <class Visit>
  void walk(double scale, Visit visit) const {
    struct Step {
      std::uint32_t id;
      double x;
      int level;
    };
    std::vector<Step> todo{{0, kMargin, -1}};
    while (!todo.empty()) {
      const Step step = todo.back();
      todo.pop_back();
      if (step.id != 0) visit(step.id, step.x, step.level, width_[step.id] * scale);
      double x = step.x;
      const std::size_t first = todo.size();
      for (const std::uint32_t child : children_[step.id]) {
        const double w = width_[child] * scale;
        if (w >= kMinWidth) todo.push_back({child, x, step.level + 1});
        x += w;
      }
      std::reverse(todo.begin() + static_cast<std::ptrdiff_t>(first), todo.end());
    }
  }

  int depth(double scale) const {
    int deepest = 0;
    walk(scale, [&](std::uint32_t, double, int level, double) { deepest = std::max(deepest, level); });
    return deepest;
  }

  void boxes(std::string& out, double scale, double bottom) const {
    walk(scale, [&](std::uint32_t id, double x, int level, double w) {
      box(out, id, x, bottom - level * kFrameHeight, w);
    });
  }

 private:
  void box(std::string& out, std::uint32_t id, double x, double y, double w) const {
    const CallNode& node = calls_.node(id);
    const std::string& name = calls_.functionName(node.function);
    out += "<g><title>";
    appendXml(out, name);
    out += "\ncalls: " + std::to_string(node.calls) + ", " + std::to_string(node.totalUsec) +
           " usec (self " + std::to_string(node.selfUsec) + " usec, " +
           number(100.0 * width_[id] / width_[0]) + "%)";
    if (node.unreturned) out += "\nwithout a return line: " + std::to_string(node.unreturned);
    out += "</title><rect x=\"" + number(x) + "\" y=\"" + number(y) + "\" width=\"" + number(w) +
           "\" height=\"" + number(kFrameHeight - 1) + "\" fill=\"" + colourOf(name) +
           "\" rx=\"2\"/>";
    const auto fits = static_cast<std::size_t>((w - 6) / kCharWidth);
    if (fits >= 3) {
      out += "<text x=\"" + number(x + 3) + "\" y=\"" + number(y + kFrameHeight - 5) + "\">";
      if (name.size() <= fits) {
        appendXml(out, name);
      } else {
        std::size_t keep = fits - 2;
        while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
        appendXml(out, std::string_view(name).substr(0, keep));
        out += "..";
      }
      out += "</text>";
    }
    out += "</g>\n";
  }

  const CallTracker& calls_;
  std::vector<std::vector<std::uint32_t>> children_;
  std::vector<double> width_;  // microseconds a node's box spans
};

}  // namespace

void appendXml(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const char c = text.front();
    const std::size_t n = utf8Length(text);
    if (n == 0 || (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r')) {
      out += '?';
      text.remove_prefix(n == 0 ? 1 : n);
      continue;
    }
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default: out.append(text.data(), n); break;
    }
    text.remove_prefix(n);
  }
}

void drawFlameGraph(std::ostream& out, const CallTracker& calls, const std::string& title) {
  const Drawing drawing(calls);
  const double scale = drawing.total() > 0 ? (kWidth - 2 * kMargin) / drawing.total() : 0;
  const int levels = scale > 0 ? drawing.depth(scale) : 0;
  const double height = kTop + (levels + 1) * kFrameHeight + kMargin;
  std::string svg;
  svg += "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
  svg += "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"" + number(kWidth) +
         "\" height=\"" + number(height) + "\" viewBox=\"0 0 " + number(kWidth) + " " +
         number(height) + "\" font-family=\"Verdana, sans-serif\" font-size=\"11\">\n";
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#f8f8f0\"/>\n";
  svg += "<text x=\"" + number(kWidth / 2) + "\" y=\"20\" font-size=\"15\" text-anchor=\"middle\">";
  appendXml(svg, title);
  svg += "</text>\n<text x=\"" + number(kWidth / 2) + "\" y=\"36\" text-anchor=\"middle\" fill=\"#555\">";
  svg += drawing.total() > 0
             ? std::to_string(static_cast<long long>(drawing.total())) +
                   " usec in returned ENTRY calls; each box as wide as its time, callers below"
             : std::string("No returned ENTRY calls in the input");
  svg += "</text>\n";
  if (scale > 0) drawing.boxes(svg, scale, height - kMargin - kFrameHeight);
  svg += "</svg>\n";
  out << svg;
}

}  // namespace qimtool
