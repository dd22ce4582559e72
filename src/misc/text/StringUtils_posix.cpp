// Encoding conversions on Linux. wchar_t holds UTF-32 here. UTF-8 has its own
// strict codec so that it rejects exactly what Windows rejects with
// MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS; other code pages go through
// iconv, without transliteration, so unmappable text fails instead of
// silently changing. Failures write the same lines as on Windows, with
// errno as the code, and leave that code in errno.
#include "qimmisc/StringUtils.h"

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iconv.h>
#include <langinfo.h>
#include <type_traits>

#include "qimmisc/Trace.h"

namespace QIM {
namespace {

constexpr std::size_t kInvalid = static_cast<std::size_t>(-1);
constexpr unsigned int kUtf8CodePage = 65001;

// Encodes `wide` as UTF-8 into `out` (when not null) and returns the number
// of bytes, or kInvalid for a surrogate or a value above U+10FFFF. Called
// once to measure and once to write, the way the Windows API is used.
std::size_t encodeUtf8(const std::wstring& wide, char* out) {
  std::size_t n = 0;
  const auto put = [&](std::uint32_t byte) {
    if (out) out[n] = static_cast<char>(byte);
    ++n;
  };
  for (const wchar_t w : wide) {
    // wchar_t is signed: negative values become huge and are rejected.
    const auto cp = static_cast<std::uint32_t>(w);
    if (cp < 0x80) {
      put(cp);
    } else if (cp < 0x800) {
      put(0xC0 | (cp >> 6));
      put(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      if (cp >= 0xD800 && cp <= 0xDFFF) return kInvalid;
      put(0xE0 | (cp >> 12));
      put(0x80 | ((cp >> 6) & 0x3F));
      put(0x80 | (cp & 0x3F));
    } else if (cp <= 0x10FFFF) {
      put(0xF0 | (cp >> 18));
      put(0x80 | ((cp >> 12) & 0x3F));
      put(0x80 | ((cp >> 6) & 0x3F));
      put(0x80 | (cp & 0x3F));
    } else {
      return kInvalid;
    }
  }
  return n;
}

// Decodes UTF-8 into `out` (when not null) and returns the number of code
// points, or kInvalid. The accepted second-byte ranges are those of the
// Unicode well-formed byte sequence table: they exclude overlong forms,
// encoded surrogates and values above U+10FFFF in one check.
std::size_t decodeUtf8(const std::string& utf8, wchar_t* out) {
  std::size_t n = 0;
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* const end = p + utf8.size();
  while (p < end) {
    // Runs of ASCII, the bulk of settings and paths, eight bytes at a time.
    while (end - p >= 8) {
      std::uint64_t block;
      std::memcpy(&block, p, sizeof block);
      if (block & 0x8080808080808080ull) break;
      if (out) {
        for (int i = 0; i < 8; ++i) out[n + i] = static_cast<wchar_t>(p[i]);
      }
      n += 8;
      p += 8;
    }
    if (p == end) break;
    const unsigned lead = *p;
    std::size_t extra = 0;
    std::uint32_t cp = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead < 0x80) {
      cp = lead;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      extra = 1;
      cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      extra = 2;
      cp = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      extra = 3;
      cp = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return kInvalid;  // continuation byte, C0/C1 or F5..FF as a lead
    }
    if (static_cast<std::size_t>(end - p) <= extra) return kInvalid;  // truncated
    for (std::size_t i = 1; i <= extra; ++i) {
      const unsigned byte = p[i];
      if (byte < low || byte > high) return kInvalid;
      low = 0x80;
      high = 0xBF;
      cp = (cp << 6) | (byte & 0x3F);
    }
    if (out) out[n] = static_cast<wchar_t>(cp);
    ++n;
    p += extra + 1;
  }
  return n;
}

// The iconv name of wide text in memory.
const char* wideCharset() {
  static_assert(sizeof(wchar_t) == 4, "wide text is UTF-32 on this platform");
  return std::endian::native == std::endian::little ? "UTF-32LE" : "UTF-32BE";
}

// iconv character set of a Windows code page number; empty when unknown.
// Code page 0 is the character set of the locale the process has now.
std::string charsetOf(unsigned int codePage) {
  struct Entry {
    unsigned int codePage;
    const char* charset;
  };
  static constexpr Entry kTable[] = {
      {437, "CP437"},          {850, "CP850"},        {866, "CP866"},
      {874, "CP874"},          {932, "CP932"},        {936, "GBK"},
      {949, "CP949"},          {950, "BIG5"},         {1200, "UTF-16LE"},
      {1201, "UTF-16BE"},      {1250, "CP1250"},      {1251, "CP1251"},
      {1252, "CP1252"},        {1253, "CP1253"},      {1254, "CP1254"},
      {1255, "CP1255"},        {1256, "CP1256"},      {1257, "CP1257"},
      {1258, "CP1258"},        {1361, "JOHAB"},       {10000, "MACINTOSH"},
      {12000, "UTF-32LE"},     {12001, "UTF-32BE"},   {20127, "ASCII"},
      {20866, "KOI8-R"},       {21866, "KOI8-U"},     {28591, "ISO-8859-1"},
      {28592, "ISO-8859-2"},   {28593, "ISO-8859-3"}, {28594, "ISO-8859-4"},
      {28595, "ISO-8859-5"},   {28596, "ISO-8859-6"}, {28597, "ISO-8859-7"},
      {28598, "ISO-8859-8"},   {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"},
      {28605, "ISO-8859-15"},  {50220, "ISO-2022-JP"}, {51932, "EUC-JP"},
      {51949, "EUC-KR"},       {54936, "GB18030"},    {65000, "UTF-7"},
      {kUtf8CodePage, "UTF-8"},
  };
  if (codePage == 0) {
    const char* codeset = ::nl_langinfo(CODESET);
    return codeset ? codeset : "";
  }
  for (const Entry& e : kTable) {
    if (e.codePage == codePage) return e.charset;
  }
  return {};
}

bool isUtf8(const std::string& charset) {
  return charset == "UTF-8" || charset == "utf-8" || charset == "UTF8" || charset == "utf8";
}

// Converts `size` bytes from charset `from` to charset `to` into `out`.
// Returns false with errno set (EILSEQ for unconvertible or invalid input,
// EINVAL for an incomplete sequence or an unknown character set).
bool iconvConvert(const char* to, const char* from, const char* in, std::size_t size,
                  std::string& out) {
  iconv_t cd = ::iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    const int code = errno;
    QIM_ERROR("iconv_open(\"" << to << "\", \"" << from << "\") failed. errno:" << code);
    errno = code;
    return false;
  }
  out.assign(size * 2 + 16, '\0');
  std::size_t used = 0;
  char* inPtr = const_cast<char*>(in);  // iconv's signature is not const-correct
  std::size_t inLeft = size;
  bool ok = true;
  for (;;) {
    // Once the input is used up, one more call with null input writes any
    // closing shift sequence of a stateful encoding.
    const bool flushing = inLeft == 0;
    char* outPtr = out.data() + used;
    std::size_t outLeft = out.size() - used;
    const std::size_t r = flushing ? ::iconv(cd, nullptr, nullptr, &outPtr, &outLeft)
                                   : ::iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft);
    used = out.size() - outLeft;
    if (r != static_cast<std::size_t>(-1)) {
      if (flushing) break;
      continue;
    }
    if (errno == E2BIG) {
      out.resize(out.size() * 2);
      continue;
    }
    ok = false;
    break;
  }
  const int code = errno;
  ::iconv_close(cd);
  errno = code;
  out.resize(ok ? used : 0);
  return ok;
}

// Runs `codec` the way the Windows conversion functions are called: once
// with a null buffer to learn the length, which goes to `len`, then into a
// buffer of that length. Invalid input writes
// "<what> returned 0. lasterror:<EILSEQ>", leaves EILSEQ in errno and
// returns false with `out` empty.
template <class In, class Out, class Codec>
bool codecTwice(const In& in, const char* what, Codec codec, Out& out, std::size_t& len) {
  len = codec(in, nullptr);
  if (len == kInvalid) {
    QIM_ERROR(what << " returned 0. lasterror:" << EILSEQ);
    errno = EILSEQ;
    out.clear();
    return false;
  }
  out.assign(len, 0);
  out.resize(codec(in, out.data()));
  return true;
}

// Converts between wide text and a code page in the direction Out gives:
// UTF-8 through `utf8` (the strict codec), anything else through iconv.
template <class Out, class In, class Utf8>
Out convertCodePage(const In& in, unsigned int codePage, const char* what, Utf8 utf8) {
  const std::string charset = charsetOf(codePage);
  if (charset.empty()) {
    QIM_ERROR("Unsupported code page " << codePage);
    return {};
  }
  if (isUtf8(charset)) return utf8(in);
  if (in.empty()) return {};
  constexpr bool toNarrow = std::is_same_v<Out, std::string>;
  const char* const to = toNarrow ? charset.c_str() : wideCharset();
  const char* const from = toNarrow ? wideCharset() : charset.c_str();
  std::string bytes;
  if (!iconvConvert(to, from, reinterpret_cast<const char*>(in.data()),
                    in.size() * sizeof(in[0]), bytes)) {
    const int code = errno;
    QIM_ERROR(what << " returned 0. lasterror:" << code);
    errno = code;
    return {};
  }
  using Unit = typename Out::value_type;
  Out out(bytes.size() / sizeof(Unit), Unit());
  std::memcpy(out.data(), bytes.data(), out.size() * sizeof(Unit));
  return out;
}

}  // namespace

std::string toUtf8(const std::wstring& wide) {
  std::string narrowStr;
  std::size_t len = 0;
  if (!codecTwice(wide, "WCToMB", encodeUtf8, narrowStr, len)) return {};
  QIM_ASSERT(len == narrowStr.size());
  return narrowStr;
}

std::wstring fromUtf8(const std::string& utf8) {
  std::wstring wideStr;
  std::size_t len = 0;
  if (!codecTwice(utf8, "MBToWC", decodeUtf8, wideStr, len)) return {};
  QIM_ASSERT(len == wideStr.size());
  return wideStr;
}

std::string toCodePage(const std::wstring& wide, unsigned int codePage) {
  return convertCodePage<std::string>(wide, codePage, "WCToMB",
                                      [](const std::wstring& w) { return toUtf8(w); });
}

std::wstring fromCodePage(const std::string& text, unsigned int codePage) {
  return convertCodePage<std::wstring>(text, codePage, "MBToWC",
                                       [](const std::string& t) { return fromUtf8(t); });
}

}  // namespace QIM
