// The sections of a settings file with the case-insensitive name matching
// the file format asks for: a name that is not stored with exactly its
// spelling resolves to the first stored name, in map order, that equals it
// ignoring case. Walking the maps for that would make a load quadratic, so
// each map keeps a case-folded index of its names beside it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "qimmisc/IConfigurationFile.h"

namespace QIM::detail {

/// For each class of names equal ignoring case (per character, towlower),
/// the class's first member in map order. Entries point into the map: names
/// are added as the map grows, and the index is rebuilt when the map is
/// emptied or replaced.
template <class Map>
class FoldIndex {
 public:
  using Iterator = typename Map::iterator;

  /// The first name in map order that equals `name` ignoring case, or `none`.
  Iterator find(const std::wstring& name, Iterator none) const;
  /// Records a name just inserted into the map.
  void add(Iterator it);
  /// Indexes every name of `map` afresh.
  void rebuild(Map& map);
  void clear() { firsts_.clear(); }

 private:
  struct FoldHash {
    std::size_t operator()(const std::wstring* name) const;
  };
  struct FoldEqual {
    bool operator()(const std::wstring* a, const std::wstring* b) const;
  };
  // Keyed by a name of the class; the value is its first member.
  std::unordered_map<const std::wstring*, Iterator, FoldHash, FoldEqual> firsts_;
};

/// The keys of one section with their index.
struct Section {
  ConfigurationSection values;
  FoldIndex<ConfigurationSection> keys;
};

/// Every section of a file, ordered by plain comparison of their names.
class SectionStore {
 public:
  using Map = std::map<std::wstring, Section>;

  void clear();

  /// The section `name` resolves to, created with this spelling when no
  /// section matches it.
  Section& obtain(const std::wstring& name);
  /// The section of exactly this spelling, created when absent.
  Section& obtainExact(const std::wstring& name);

  /// The value `key` resolves to in `section`, or null.
  static const std::wstring* find(Section& section, const std::wstring& key);
  /// Stores `value` under the key `key` resolves to (this spelling when new).
  static void assign(Section& section, const std::wstring& key, std::wstring value);
  /// Replaces the whole content of `section`.
  static void replace(Section& section, ConfigurationSection values);
  /// Empties `section`.
  static void empty(Section& section);

  std::vector<std::wstring> names() const;
  /// The written form: each section's "[name]" line and its "key=value"
  /// lines, all in map order, every line ending with LF.
  std::wstring toText() const;

 private:
  Section& insert(Map::iterator hint, const std::wstring& name);

  Map sections_;
  FoldIndex<Map> index_;
};

}  // namespace QIM::detail
