#include "platform/posix/termios_settings.h"

namespace kavo::platform::posix {
namespace {

// DCB flag bits termios holds besides fParity.
constexpr uint32_t kDcbOutxCtsFlow = 0x0004;
constexpr uint32_t kDcbOutX = 0x0100;
constexpr uint32_t kDcbInX = 0x0200;

struct BaudRate {
  uint32_t rate;
  speed_t speed;
};

constexpr BaudRate kBaudRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},       {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},     {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},   {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},
#ifdef B460800
    {460800, B460800},   {500000, B500000},   {576000, B576000},   {921600, B921600}, {1000000, B1000000},
    {1152000, B1152000}, {1500000, B1500000}, {2000000, B2000000},
#endif
};

uint32_t RateOf(speed_t speed) {
  for (const BaudRate& entry : kBaudRates)
    if (entry.speed == speed) return entry.rate;
  return 0;
}

}  // namespace

bool SpeedOf(uint32_t rate, speed_t* speed) {
  for (const BaudRate& entry : kBaudRates) {
    if (entry.rate != rate) continue;
    *speed = entry.speed;
    return true;
  }
  return false;
}

bool ApplyDcb(const SerialState& state, termios* tio) {
  if (state.baudRate == 0 || state.byteSize < 5 || state.byteSize > 8 || state.parity > 4 || state.stopBits > 2)
    return false;
  speed_t speed = B0;
  if (SpeedOf(state.baudRate, &speed)) {
    cfsetispeed(tio, speed);
    cfsetospeed(tio, speed);
  }
  static constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  static constexpr tcflag_t kParities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
  tio->c_cflag &= ~(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS);
  tio->c_cflag |= kSizes[state.byteSize - 5] | kParities[state.parity] | CLOCAL | CREAD;
  if (state.stopBits != 0) tio->c_cflag |= CSTOPB;  // one and a half is two here
  if (state.flags & kDcbOutxCtsFlow) tio->c_cflag |= CRTSCTS;
  tio->c_iflag &= ~(INPCK | IXON | IXOFF);
  if (state.flags & kDcbParityCheck) tio->c_iflag |= INPCK;
  if (state.flags & kDcbOutX) tio->c_iflag |= IXON;
  if (state.flags & kDcbInX) tio->c_iflag |= IXOFF;
  return true;
}

SerialState DcbFrom(const termios& tio, uint32_t flags) {
  SerialState state;
  state.length = 28;
  state.baudRate = RateOf(cfgetospeed(&tio));
  switch (tio.c_cflag & CSIZE) {
    case CS5:
      state.byteSize = 5;
      break;
    case CS6:
      state.byteSize = 6;
      break;
    case CS7:
      state.byteSize = 7;
      break;
    default:
      state.byteSize = 8;
      break;
  }
  if (!(tio.c_cflag & PARENB)) {
    state.parity = 0;
  } else if (tio.c_cflag & CMSPAR) {
    state.parity = (tio.c_cflag & PARODD) ? 3 : 4;
  } else {
    state.parity = (tio.c_cflag & PARODD) ? 1 : 2;
  }
  state.stopBits = (tio.c_cflag & CSTOPB) ? 2 : 0;
  flags &= ~(kDcbParityCheck | kDcbOutxCtsFlow | kDcbOutX | kDcbInX);
  flags |= kDcbBinary;
  if (tio.c_iflag & INPCK) flags |= kDcbParityCheck;
  if (tio.c_cflag & CRTSCTS) flags |= kDcbOutxCtsFlow;
  if (tio.c_iflag & IXON) flags |= kDcbOutX;
  if (tio.c_iflag & IXOFF) flags |= kDcbInX;
  state.flags = flags;
  return state;
}

}  // namespace kavo::platform::posix
