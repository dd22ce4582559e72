// Per-call cost of the SIP helpers the client runs on every contact and
// dialled number, with ENTRY closed. Each helper opens one ENTRY scope of
// its own and one per helper it calls; "sip_entry_scope" is an empty
// function opening the same kind of scope, so a helper's scope share is
// (scopes per call x that figure) / its time.
#include <benchmark/benchmark.h>

#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/FullSipAddress.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/Trace.h"

namespace {

const std::wstring kPstnUri = L"sip:+1 (613) 555-0100@host;user=phone";
const std::wstring kDialled = L"9 (613) 555.0100";
const std::wstring kPrefixes = L"9;613";

void closeEntry() { QIM::DbgMsg::toggleChannel(QIM::DbgMsg::EntryId, false); }

// Kept out of line so the call and the scope are what is measured.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void emptyScope(int i) {
  QIM_ENTRY();
  benchmark::DoNotOptimize(i);
}

void entryScope(benchmark::State& state) {
  closeEntry();
  int i = 0;
  for (auto _ : state) emptyScope(++i);
}
BENCHMARK(entryScope)->Name("sip_entry_scope/qimmisc");

void isPstn(benchmark::State& state) {
  closeEntry();
  for (auto _ : state) benchmark::DoNotOptimize(QIM::isPstnNumber(kPstnUri, kPrefixes));
}
BENCHMARK(isPstn)->Name("sip_isPstnNumber/qimmisc");

void normalize(benchmark::State& state) {
  closeEntry();
  for (auto _ : state) benchmark::DoNotOptimize(QIM::normalizePhoneNumber(kDialled, kPrefixes));
}
BENCHMARK(normalize)->Name("sip_normalizePhoneNumber/qimmisc");

// The form the client calls: the prefixes come from the main settings, so
// the library is started for it (an empty installation: no prefixes).
void normalizeFromSettings(benchmark::State& state) {
  if (QIM::QIMMiscApi::refCount() != 0) {
    state.SkipWithError("the library is already started by another benchmark");
    return;
  }
  closeEntry();
  QIM::DbgMsg::toggleChannel(QIM::DbgMsg::ErrorId, false);  // no settings file here
  QIM::QIMMiscApi::init();
  for (auto _ : state) benchmark::DoNotOptimize(QIM::normalizePhoneNumber(kDialled));
  QIM::QIMMiscApi::exit();
  QIM::DbgMsg::toggleChannel(QIM::DbgMsg::ErrorId, true);
}
BENCHMARK(normalizeFromSettings)->Name("sip_normalizePhoneNumber_settings/qimmisc");

void equalsAddress(benchmark::State& state) {
  closeEntry();
  const std::wstring a = L"alice.smith@PBX.example.com", b = L"alice.smith@pbx.example.com";
  for (auto _ : state) benchmark::DoNotOptimize(QIM::equalsSipAddress(a, b));
}
BENCHMARK(equalsAddress)->Name("sip_equalsSipAddress/qimmisc");

void addressEquality(benchmark::State& state) {
  closeEntry();
  const QIM::FullSipAddress a(L"sip:alice.smith@PBX.example.com");
  const QIM::FullSipAddress b(L"alice.smith@pbx.example.com");
  for (auto _ : state) benchmark::DoNotOptimize(a == b);
}
BENCHMARK(addressEquality)->Name("sip_FullSipAddress_eq/qimmisc");

}  // namespace
