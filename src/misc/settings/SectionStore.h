// The sections of a settings file with the case-insensitive name matching
// the file format asks for: a name that is not stored with exactly its
// spelling resolves to the first stored name, in map order, that equals it
// ignoring case. Walking the maps for that would make a load quadratic, so
// each map keeps a case-folded index of its names beside it.
//
// Names and values read from a file are views into the file's decoded text,
// which the store keeps: a load costs one map node per entry and nothing
// per string. Text given through the interface is copied.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qimmisc/IConfigurationFile.h"

namespace QIM::detail {

/// A name or a value: a view into the store's file text, or its own copy.
class Text {
 public:
  Text() = default;
  /// Refers to `text`, which must outlive this object.
  static Text borrow(std::wstring_view text);
  /// Holds a copy of `text`.
  static Text copy(std::wstring_view text);
  std::wstring_view view() const { return view_; }

 private:
  std::unique_ptr<wchar_t[]> owned_;  // on the heap, so moves keep view_ valid
  std::wstring_view view_;
};

/// Plain (case-sensitive) order of the texts, as std::wstring compares.
struct TextLess {
  using is_transparent = void;
  bool operator()(const Text& a, const Text& b) const { return a.view() < b.view(); }
  bool operator()(const Text& a, std::wstring_view b) const { return a.view() < b; }
  bool operator()(std::wstring_view a, const Text& b) const { return a < b.view(); }
};

/// For each class of names equal ignoring case (per character, towlower),
/// the class's first member in map order: an open-addressing table of map
/// iterators. Names are added as the map grows, and the index is rebuilt
/// when the map is emptied or replaced.
template <class Map>
class FoldIndex {
 public:
  using Iterator = typename Map::iterator;

  /// The hash every operation below takes: equal for names equal ignoring
  /// case, never 0.
  static std::size_t hashOf(std::wstring_view name);

  /// The first name in map order that equals `name` ignoring case, or `none`.
  Iterator find(std::wstring_view name, std::size_t hash, Iterator none) const;
  /// Records a name just inserted into the map.
  void add(Iterator it, std::size_t hash);
  /// Indexes every name of `map` afresh.
  void rebuild(Map& map);
  void clear();

 private:
  struct Slot {
    std::size_t hash = 0;  // 0: empty
    Iterator it;
  };
  std::vector<Slot> slots_;  // a power of two in size, at most half full
  std::size_t used_ = 0;
};

using Values = std::map<Text, Text, TextLess>;

/// The keys of one section with their index.
struct Section {
  Values values;
  FoldIndex<Values> keys;
};

/// Every section of a file, ordered by plain comparison of their names.
class SectionStore {
 public:
  using Map = std::map<Text, Section, TextLess>;

  /// Forgets everything, the file text included.
  void clear();
  /// Keeps `text` as the file text that parsed names and values refer to.
  const std::wstring& adoptText(std::wstring text);

  /// The section `name` resolves to, created with this spelling when no
  /// section matches it.
  Section& obtain(std::wstring_view name);
  /// The section of exactly this spelling, created when absent.
  Section& obtainExact(std::wstring_view name);

  /// The value `key` resolves to in `section`, or null.
  const Text* find(Section& section, std::wstring_view key) const;
  /// Stores `value` under the key `key` resolves to (this spelling when new).
  void assign(Section& section, std::wstring_view key, std::wstring_view value);
  /// Replaces the whole content of `section`.
  void replace(Section& section, const ConfigurationSection& values);
  /// Empties `section`.
  void empty(Section& section);
  /// A copy of the content of `section`.
  static ConfigurationSection copyOf(const Section& section);

  std::vector<std::wstring> names() const;
  /// The written form: each section's "[name]" line and its "key=value"
  /// lines, all in map order, every line ending with LF.
  std::wstring toText() const;

 private:
  // A view into text_ is kept as it is; anything else is copied.
  Text keep(std::wstring_view text) const;
  Section& insert(Map::iterator hint, std::wstring_view name, std::size_t hash);

  std::wstring text_;
  Map sections_;
  FoldIndex<Map> index_;
};

}  // namespace QIM::detail
