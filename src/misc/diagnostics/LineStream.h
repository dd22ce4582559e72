// A reusable trace line: an std::ostream writing straight into a string.
// Lines are pooled per thread (nested Tracers take one each), so an open
// trace line builds no stream and copies no text.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace QIM {
namespace DbgMsg {
namespace detail {

class LineStream {
 public:
  LineStream() : stream_(&buffer_) {}
  LineStream(const LineStream&) = delete;
  LineStream& operator=(const LineStream&) = delete;

  std::string& text() { return buffer_.text; }
  std::ostream& stream() { return stream_; }

  /// Back to an empty line with default formatting, whatever the previous
  /// user streamed (std::hex, widths, a failed state).
  void reset() {
    if (buffer_.text.capacity() > kKeptCapacity) {
      std::string().swap(buffer_.text);
    } else {
      buffer_.text.clear();
    }
    stream_.clear();
    stream_.flags(std::ios_base::dec | std::ios_base::skipws);
    stream_.width(0);
    stream_.precision(6);
    stream_.fill(' ');
  }

 private:
  static constexpr std::size_t kKeptCapacity = 4096;
  struct Buffer : std::streambuf {
    std::string text;
    int_type overflow(int_type c) override {
      if (!traits_type::eq_int_type(c, traits_type::eof())) text.push_back(static_cast<char>(c));
      return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
      text.append(s, static_cast<std::size_t>(n));
      return n;
    }
  };
  Buffer buffer_;
  std::ostream stream_;
};

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
