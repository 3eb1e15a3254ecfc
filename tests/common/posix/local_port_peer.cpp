// The receiver's side held in the test process.
#include <gtest/gtest.h>

#include "common/pty_peer/pty_receiver.h"
#include "platform/platform.h"
#include "common/port_peer.h"
#include "utf_conversion.h"

namespace kavo::test {
namespace {

class LocalPortPeer final : public PortPeer {
 public:
  // The test keeps no slave descriptor: it would keep the line up after a hang-up.
  LocalPortPeer() {
    if (!receiver_.Open(&path_)) ADD_FAILURE() << "openpty failed";
  }
  std::u16string PortName() const override { return unicode::Utf8ToUtf16(path_); }
  std::string Settings() override { return receiver_.Settings(); }
  void Send(const std::string& bytes) override { ASSERT_TRUE(receiver_.Send(bytes)); }
  std::string Receive(size_t max, uint32_t waitMs) override { return receiver_.Receive(max, int(waitMs)); }

 private:
  PtyReceiver receiver_;
  std::string path_;
};

}  // namespace

std::unique_ptr<PortPeer> NewPortPeer() { return std::make_unique<LocalPortPeer>(); }

}  // namespace kavo::test
