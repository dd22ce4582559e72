#include "settings/SectionStore.h"

#include <cwctype>
#include <utility>

namespace QIM::detail {
namespace {

// The folding of stringCompareIgnoreCase, so the index agrees with it.
wchar_t fold(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))); }

}  // namespace

template <class Map>
std::size_t FoldIndex<Map>::FoldHash::operator()(const std::wstring* name) const {
  std::uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a
  for (wchar_t c : *name) {
    hash ^= static_cast<std::uint32_t>(fold(c));
    hash *= 0x100000001b3ull;
  }
  return static_cast<std::size_t>(hash);
}

template <class Map>
bool FoldIndex<Map>::FoldEqual::operator()(const std::wstring* a, const std::wstring* b) const {
  if (a->size() != b->size()) return false;
  for (std::size_t i = 0; i < a->size(); ++i) {
    if ((*a)[i] != (*b)[i] && fold((*a)[i]) != fold((*b)[i])) return false;
  }
  return true;
}

template <class Map>
typename FoldIndex<Map>::Iterator FoldIndex<Map>::find(const std::wstring& name,
                                                       Iterator none) const {
  const auto hit = firsts_.find(&name);
  return hit == firsts_.end() ? none : hit->second;
}

template <class Map>
void FoldIndex<Map>::add(Iterator it) {
  const auto [slot, added] = firsts_.emplace(&it->first, it);
  // A new spelling of a known class only takes over when it sorts first.
  if (!added && it->first < slot->second->first) slot->second = it;
}

template <class Map>
void FoldIndex<Map>::rebuild(Map& map) {
  firsts_.clear();
  firsts_.reserve(map.size());
  // In map order, so the first member of each class is the one kept.
  for (auto it = map.begin(); it != map.end(); ++it) firsts_.emplace(&it->first, it);
}

template class FoldIndex<ConfigurationSection>;
template class FoldIndex<SectionStore::Map>;

void SectionStore::clear() {
  index_.clear();
  sections_.clear();
}

Section& SectionStore::obtain(const std::wstring& name) {
  const auto first = index_.find(name, sections_.end());
  if (first == sections_.end()) return insert(sections_.end(), name);
  if (first->first == name) return first->second;
  // Another spelling of the class is first; this one wins only if stored.
  const auto exact = sections_.find(name);
  return exact != sections_.end() ? exact->second : first->second;
}

Section& SectionStore::obtainExact(const std::wstring& name) {
  const auto at = sections_.lower_bound(name);
  if (at != sections_.end() && at->first == name) return at->second;
  return insert(at, name);
}

Section& SectionStore::insert(Map::iterator hint, const std::wstring& name) {
  const auto it = sections_.emplace_hint(hint, name, Section{});
  index_.add(it);
  return it->second;
}

const std::wstring* SectionStore::find(Section& section, const std::wstring& key) {
  const auto none = section.values.end();
  const auto first = section.keys.find(key, none);
  if (first == none) return nullptr;
  if (first->first == key) return &first->second;
  const auto exact = section.values.find(key);
  return exact != none ? &exact->second : &first->second;
}

void SectionStore::assign(Section& section, const std::wstring& key, std::wstring value) {
  const auto none = section.values.end();
  auto target = section.keys.find(key, none);
  if (target == none) {
    target = section.values.emplace(key, std::wstring()).first;
    section.keys.add(target);
  } else if (target->first != key) {
    const auto exact = section.values.find(key);
    if (exact != none) target = exact;
  }
  target->second = std::move(value);
}

void SectionStore::replace(Section& section, ConfigurationSection values) {
  section.values = std::move(values);
  section.keys.rebuild(section.values);
}

void SectionStore::empty(Section& section) {
  section.keys.clear();
  section.values.clear();
}

std::vector<std::wstring> SectionStore::names() const {
  std::vector<std::wstring> names;
  names.reserve(sections_.size());
  for (const auto& entry : sections_) names.push_back(entry.first);
  return names;
}

std::wstring SectionStore::toText() const {
  std::size_t size = 0;
  for (const auto& [name, section] : sections_) {
    size += name.size() + 3;
    for (const auto& [key, value] : section.values) size += key.size() + value.size() + 2;
  }
  std::wstring text;
  text.reserve(size);
  for (const auto& [name, section] : sections_) {
    text.append(1, L'[').append(name).append(L"]\n");
    for (const auto& [key, value] : section.values) {
      text.append(key).append(1, L'=').append(value).append(1, L'\n');
    }
  }
  return text;
}

}  // namespace QIM::detail
