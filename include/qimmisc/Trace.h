// The few shapes every diagnostic site in the library takes.
//
//   QIM_TRACE(channel, "text " << value);      one line, only if channel is open
//   QIM_ERROR("text " << value);               the same on the ERROR channel
//   QIM_ENTRY("arg=" << arg);                  instrumented scope (StackLogger)
//                                              and its ENTRY line; QIM_ENTRY()
//                                              writes an empty one
//   QIM_ASSERT(0!=ptr_);                       assertion line + back-trace,
//   QIM_ASSERT(count == 0, n << " left");      then carry on
//   QIM_ASSERT_AS(isMine(), "tid_==self");     the same, logging the given
//                                              condition text instead of the
//                                              code's own
//   QIM_THROW(FileNotFoundException, "File not found", "path=" << p);
//
// Each site keeps its Locus in a function-local static, made on the first
// open line; a site's channel must therefore be the same every time (a
// constant, or a module channel looked up once). The condition text of an
// assertion is the source text as written, so write conditions exactly as
// they should read in the log.
#pragma once

#include <sstream>
#include <string>

#include "qimmisc/DbgMsg.h"

#if defined(_MSC_VER) && !defined(__clang__)
#define QIM_PRETTY_FUNCTION __FUNCSIG__
#else
#define QIM_PRETTY_FUNCTION __PRETTY_FUNCTION__
#endif

#define QIM_LOCUS_STATIC_(var, channel)                                   \
  static const ::QIM::DbgMsg::Locus var {                                 \
    (channel), ::QIM::DbgMsg::detail::fileName(__FILE__), __LINE__,       \
        ::QIM::DbgMsg::detail::functionName(QIM_PRETTY_FUNCTION),          \
        "??? ?? ????"                                                     \
  }

#define QIM_TRACE(channel, ...)                                           \
  do {                                                                    \
    if (::QIM::DbgMsg::isOpen(channel)) {                                 \
      QIM_LOCUS_STATIC_(qimLocus_, channel);                              \
      ::QIM::DbgMsg::Tracer qimTracer_(qimLocus_,                         \
                                       ::QIM::DbgMsg::LLT_Default());     \
      static_cast<void>(qimTracer_ __VA_OPT__(<<) __VA_ARGS__);           \
    }                                                                     \
  } while (0)

#define QIM_ERROR(...) QIM_TRACE(::QIM::DbgMsg::ErrorId, __VA_ARGS__)

#define QIM_ENTRY(...)                                                    \
  QIM_LOCUS_STATIC_(qimEntryLocus_, ::QIM::DbgMsg::EntryId);              \
  ::QIM::DbgMsg::StackLogger qimStackLogger_(qimEntryLocus_);             \
  if (qimStackLogger_.isActive()) {                                       \
    ::QIM::DbgMsg::Tracer qimTracer_(qimEntryLocus_,                      \
                                     ::QIM::DbgMsg::LLT_Default());       \
    static_cast<void>(qimTracer_ __VA_OPT__(<<) __VA_ARGS__);             \
  }                                                                       \
  static_cast<void>(0)

#define QIM_ASSERT(cond, ...) QIM_ASSERT_AS(cond, #cond __VA_OPT__(, ) __VA_ARGS__)

// Where the log's condition text must stay as it has always read while the
// code says the same thing more plainly.
#define QIM_ASSERT_AS(cond, text, ...)                                    \
  do {                                                                    \
    if (!(cond)) {                                                        \
      QIM_LOCUS_STATIC_(qimLocus_, ::QIM::DbgMsg::ErrorId);               \
      QIM_ASSERT_FAILED_(qimLocus_, text __VA_OPT__(, ) __VA_ARGS__);     \
    }                                                                     \
  } while (0)

// The message, when given, is streamed into a temporary only on failure.
#define QIM_ASSERT_FAILED_(locus, condText, ...)                          \
  ::QIM::DbgMsg::detail::assertionFailed(                                 \
      locus, condText __VA_OPT__(, static_cast<std::ostringstream&>(      \
                                       std::ostringstream().flush()       \
                                       << __VA_ARGS__)                    \
                                       .str()))

#define QIM_THROW(Type, message, ...)                                     \
  do {                                                                    \
    QIM_ERROR("Throwing " #Type "(\"" << (message) << "\") : "            \
              __VA_OPT__(<<) __VA_ARGS__);                                \
    throw Type(message);                                                  \
  } while (0)
