// Uses the installed library through the umbrella header only.
#include <qimmisc/QIMMisc.h>

#include <cstdio>

namespace {
struct Sink : QIM::DbgMsg::LineLogger {
  int lines = 0;
  void doLogging(const std::string&, const QIM::DbgMsg::LogLineType&) override { ++lines; }
};
}  // namespace

int main() {
  Sink sink;
  QIM::DbgMsg::setLogDest(&sink);
  QIM::QIMMiscApi::init();
  sink.lines = 0;  // init logs when there is no main settings file
  QIM_ERROR("consumer " << 1);
  bool ran = false;
  void* handle = nullptr;
  QIM::createThread(QIM::makeFunctor([&ran] { ran = true; }), "consumer", &handle, 0);
  QIM::joinThread(handle);
  const bool ok = ran && sink.lines == 1 && QIM::toUtf8(QIM::getBuildVersion()) == "10.4" &&
                  QIM::trim(std::string("  x ")) == "x";
  QIM::QIMMiscApi::exit();
  QIM::DbgMsg::setLogDest(nullptr);
  std::printf("consumer %s\n", ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}
