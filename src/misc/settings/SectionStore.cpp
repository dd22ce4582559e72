#include "settings/SectionStore.h"

#include <cwchar>
#include <cwctype>
#include <functional>
#include <utility>

namespace QIM::detail {
namespace {

// The folding of stringCompareIgnoreCase, so the index agrees with it. No
// locale lowers an ASCII character other than A to Z (Turkish lowers I to a
// dotless i), so only those, and the rest of Unicode, ask towlower.
wchar_t fold(wchar_t c) {
  if (c < 0x80 && (c < L'A' || c > L'Z')) return c;
  return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

bool foldEqual(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

// The hash looks at the length and at most this many characters from each
// end: enough to tell settings names apart, and few calls of towlower.
constexpr std::size_t kHashedEnds = 6;

}  // namespace

Text Text::borrow(std::wstring_view text) {
  Text result;
  result.view_ = text;
  return result;
}

Text Text::copy(std::wstring_view text) {
  Text result;
  if (!text.empty()) {
    result.owned_.reset(new wchar_t[text.size()]);
    std::wmemcpy(result.owned_.get(), text.data(), text.size());
    result.view_ = std::wstring_view(result.owned_.get(), text.size());
  }
  return result;
}

template <class Map>
std::size_t FoldIndex<Map>::hashOf(std::wstring_view name) {
  std::uint64_t hash = 0xcbf29ce484222325ull ^ name.size();  // FNV-1a
  const auto mix = [&hash](wchar_t c) {
    hash ^= static_cast<std::uint32_t>(fold(c));
    hash *= 0x100000001b3ull;
  };
  if (name.size() <= 2 * kHashedEnds) {
    for (wchar_t c : name) mix(c);
  } else {
    for (std::size_t i = 0; i < kHashedEnds; ++i) mix(name[i]);
    for (std::size_t i = name.size() - kHashedEnds; i < name.size(); ++i) mix(name[i]);
  }
  const auto folded = static_cast<std::size_t>(hash ^ (hash >> 29));
  return folded ? folded : 1;
}

template <class Map>
typename FoldIndex<Map>::Iterator FoldIndex<Map>::find(std::wstring_view name, std::size_t hash,
                                                       Iterator none) const {
  if (slots_.empty()) return none;
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = hash & mask; slots_[i].hash != 0; i = (i + 1) & mask) {
    if (slots_[i].hash == hash && foldEqual(slots_[i].it->first.view(), name)) {
      return slots_[i].it;
    }
  }
  return none;
}

template <class Map>
void FoldIndex<Map>::add(Iterator it, std::size_t hash) {
  if (2 * (used_ + 1) > slots_.size()) {
    std::vector<Slot> old(slots_.empty() ? 8 : 2 * slots_.size());
    old.swap(slots_);
    used_ = 0;
    // Re-adding in any order is right: each class holds one slot.
    for (const Slot& slot : old) {
      if (slot.hash != 0) add(slot.it, slot.hash);
    }
  }
  const std::size_t mask = slots_.size() - 1;
  std::size_t i = hash & mask;
  for (; slots_[i].hash != 0; i = (i + 1) & mask) {
    Slot& slot = slots_[i];
    if (slot.hash == hash && foldEqual(slot.it->first.view(), it->first.view())) {
      // A new spelling of a known class only takes over when it sorts first.
      if (it->first.view() < slot.it->first.view()) slot.it = it;
      return;
    }
  }
  slots_[i] = Slot{hash, it};
  ++used_;
}

template <class Map>
void FoldIndex<Map>::rebuild(Map& map) {
  clear();
  // In map order, so the first member of each class is the one kept.
  for (auto it = map.begin(); it != map.end(); ++it) add(it, hashOf(it->first.view()));
}

template <class Map>
void FoldIndex<Map>::clear() {
  slots_.clear();
  used_ = 0;
}

template class FoldIndex<Values>;
template class FoldIndex<SectionStore::Map>;

void SectionStore::clear() {
  index_.clear();
  sections_.clear();
  text_.clear();
}

const std::wstring& SectionStore::adoptText(std::wstring text) {
  text_ = std::move(text);
  return text_;
}

Text SectionStore::keep(std::wstring_view text) const {
  const std::less<const wchar_t*> before;
  const bool inText = !before(text.data(), text_.data()) &&
                      !before(text_.data() + text_.size(), text.data() + text.size());
  return inText ? Text::borrow(text) : Text::copy(text);
}

Section& SectionStore::obtain(std::wstring_view name) {
  const std::size_t hash = FoldIndex<Map>::hashOf(name);
  const auto first = index_.find(name, hash, sections_.end());
  if (first == sections_.end()) return insert(sections_.end(), name, hash);
  if (first->first.view() == name) return first->second;
  // Another spelling of the class is first; this one wins only if stored.
  const auto exact = sections_.find(name);
  return exact != sections_.end() ? exact->second : first->second;
}

Section& SectionStore::obtainExact(std::wstring_view name) {
  const auto at = sections_.lower_bound(name);
  if (at != sections_.end() && at->first.view() == name) return at->second;
  return insert(at, name, FoldIndex<Map>::hashOf(name));
}

Section& SectionStore::insert(Map::iterator hint, std::wstring_view name, std::size_t hash) {
  const auto it = sections_.emplace_hint(hint, keep(name), Section{});
  index_.add(it, hash);
  return it->second;
}

const Text* SectionStore::find(Section& section, std::wstring_view key) const {
  const auto none = section.values.end();
  const auto first = section.keys.find(key, FoldIndex<Values>::hashOf(key), none);
  if (first == none) return nullptr;
  if (first->first.view() == key) return &first->second;
  const auto exact = section.values.find(key);
  return exact != none ? &exact->second : &first->second;
}

void SectionStore::assign(Section& section, std::wstring_view key, std::wstring_view value) {
  const auto none = section.values.end();
  const std::size_t hash = FoldIndex<Values>::hashOf(key);
  auto target = section.keys.find(key, hash, none);
  if (target == none) {
    target = section.values.emplace(keep(key), Text()).first;
    section.keys.add(target, hash);
  } else if (target->first.view() != key) {
    const auto exact = section.values.find(key);
    if (exact != none) target = exact;
  }
  target->second = keep(value);
}

void SectionStore::replace(Section& section, const ConfigurationSection& values) {
  section.values.clear();
  for (const auto& [key, value] : values) {
    section.values.emplace_hint(section.values.end(), Text::copy(key), Text::copy(value));
  }
  section.keys.rebuild(section.values);
}

void SectionStore::empty(Section& section) {
  section.keys.clear();
  section.values.clear();
}

ConfigurationSection SectionStore::copyOf(const Section& section) {
  ConfigurationSection copy;
  for (const auto& [key, value] : section.values) {
    copy.emplace_hint(copy.end(), key.view(), value.view());
  }
  return copy;
}

std::vector<std::wstring> SectionStore::names() const {
  std::vector<std::wstring> names;
  names.reserve(sections_.size());
  for (const auto& entry : sections_) names.emplace_back(entry.first.view());
  return names;
}

std::wstring SectionStore::toText() const {
  std::size_t size = 0;
  for (const auto& [name, section] : sections_) {
    size += name.view().size() + 3;
    for (const auto& [key, value] : section.values) {
      size += key.view().size() + value.view().size() + 2;
    }
  }
  std::wstring text;
  text.reserve(size);
  for (const auto& [name, section] : sections_) {
    text.append(1, L'[').append(name.view()).append(L"]\n");
    for (const auto& [key, value] : section.values) {
      text.append(key.view()).append(1, L'=').append(value.view()).append(1, L'\n');
    }
  }
  return text;
}

}  // namespace QIM::detail
