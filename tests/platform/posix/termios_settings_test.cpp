#include "platform/posix/termios_settings.h"

#include <gtest/gtest.h>

namespace kavo::platform::posix {
namespace {

constexpr uint32_t kOutxCtsFlow = 0x0004, kOutX = 0x0100, kInX = 0x0200;

SerialState State(uint32_t baud, uint8_t parity, uint8_t byteSize, uint8_t stopBits, uint32_t flags = 0) {
  SerialState s;
  s.baudRate = baud;
  s.parity = parity;
  s.byteSize = byteSize;
  s.stopBits = stopBits;
  s.flags = flags;
  return s;
}

TEST(TermiosSettings, EveryParityByteSizeAndStopBitCodeMapsAndReadsBack) {
  const tcflag_t parities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
  const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
  for (uint8_t parity = 0; parity <= 4; ++parity) {
    for (uint8_t size = 5; size <= 8; ++size) {
      for (uint8_t stop = 0; stop <= 2; ++stop) {
        SCOPED_TRACE(testing::Message() << int(parity) << " " << int(size) << " " << int(stop));
        termios tio {};
        tio.c_cflag = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS;  // all to be replaced
        ASSERT_TRUE(ApplyDcb(State(4800, parity, size, stop), &tio));
        EXPECT_EQ(tio.c_cflag & (PARENB | PARODD | CMSPAR | CSIZE | CSTOPB | CRTSCTS),
                  parities[parity] | sizes[size - 5] | (stop ? CSTOPB : 0));
        const SerialState back = DcbFrom(tio, 0);
        EXPECT_EQ(std::vector<int>({back.parity, back.byteSize, back.stopBits, int(back.baudRate)}),
                  std::vector<int>({parity, size, stop == 0 ? 0 : 2, 4800}));  // one and a half is two
      }
    }
  }
}

TEST(TermiosSettings, FlagsTermiosHoldsTravelAndTheOthersAreKept) {
  termios tio {};
  ASSERT_TRUE(ApplyDcb(State(9600, 2, 8, 0, kDcbParityCheck | kOutxCtsFlow | kOutX | kInX | kDcbDtrControlEnable), &tio));
  EXPECT_EQ(tio.c_iflag & (INPCK | IXON | IXOFF), tcflag_t(INPCK | IXON | IXOFF));
  EXPECT_TRUE(tio.c_cflag & CRTSCTS);
  // DTR and RTS control are not termios matters: they come from `flags`.
  EXPECT_EQ(DcbFrom(tio, kDcbRtsControlToggle).flags,
            kDcbBinary | kDcbParityCheck | kOutxCtsFlow | kOutX | kInX | kDcbRtsControlToggle);
  ASSERT_TRUE(ApplyDcb(State(9600, 2, 8, 0, 0), &tio));
  EXPECT_EQ(DcbFrom(tio, kDcbParityCheck | kDcbDtrControlEnable).flags, kDcbBinary | kDcbDtrControlEnable);
}

TEST(TermiosSettings, CodesThePortCannotTakeAreRefusedAndOtherRatesKeepTheSpeed) {
  for (const SerialState& bad : {State(4800, 5, 8, 0), State(4800, 0, 4, 0), State(4800, 0, 9, 0),
                                 State(4800, 0, 8, 3), State(0, 0, 8, 0)}) {
    termios tio {};
    tio.c_cflag = CS7;
    EXPECT_FALSE(ApplyDcb(bad, &tio));
    EXPECT_EQ(tio.c_cflag, tcflag_t(CS7)) << "changed although refused";
  }
  termios tio {};
  ASSERT_TRUE(ApplyDcb(State(230400, 0, 8, 0), &tio));
  ASSERT_TRUE(ApplyDcb(State(14400, 0, 7, 0), &tio));  // set by number by the port
  EXPECT_EQ(cfgetospeed(&tio), speed_t(B230400));
  EXPECT_EQ(tio.c_cflag & CSIZE, tcflag_t(CS7));
}

}  // namespace
}  // namespace kavo::platform::posix
