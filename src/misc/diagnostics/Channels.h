// What the line header reads from the channel table and the ENTRY settings
// (Channels.cpp).
#pragma once

namespace QIM {
namespace DbgMsg {
namespace detail {

/// Widens the channel column to `nameLength` if that is wider than every
/// name seen so far; returns the column's width. It only grows.
unsigned channelColumnWidth(unsigned nameLength);

/// ENTRY lines show depth as ">" arrows (true) or as "[ n]".
bool entryArrows();
/// StackLoggers deeper than this write nothing; negative: no limit.
int entryMaxDepth();

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
