#include "net/ConnectivityHarness.h"

#include <ace/Thread.h>

#include <chrono>
#include <thread>

#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/VelderIni.h"

namespace QIM::test {

std::vector<std::string> RecordingHandler::calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

void RecordingHandler::record(const std::string& call) {
  const bool onOwner = owner_.tid() == static_cast<unsigned long>(ACE_Thread::self());
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(onOwner ? call : "!" + call);
}

ConnectivityHarness::ConnectivityHarness(int millisecondsPerSecond, int reconnectDelay)
    : millisecondsPerSecond_(millisecondsPerSecond) {
  DbgMsg::initChannels("+all");
  DbgMsg::setLogDest(&sink);
  QIMMiscApi::init();
  BufferConfigurationFile settings;
  settings.setString(L"VELDer", L"IPChangeReConnectDelay", std::to_wstring(reconnectDelay));
  Data::VelderIni::instance()->readFrom(settings);
  IpConnectivityManager::setSecondForTesting(ACE_Time_Value(0, millisecondsPerSecond * 1000));
  owner.start("connectivity owner");
}

ConnectivityHarness::~ConnectivityHarness() {
  owner.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  IpConnectivityManager::setSecondForTesting(ACE_Time_Value(1));
  QIMMiscApi::exit();
  DbgMsg::setLogDest(nullptr);
  DbgMsg::initChannels(nullptr);
}

void ConnectivityHarness::onOwner(const std::function<void()>& action) {
  Gate done;
  owner.push_back(makeFunctor([&] {
                    action();
                    done.open();
                  }),
                  0);
  done.wait();
}

void ConnectivityHarness::idle(int seconds) const {
  std::this_thread::sleep_for(std::chrono::milliseconds(seconds * millisecondsPerSecond_));
}

}  // namespace QIM::test
