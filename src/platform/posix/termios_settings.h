// The Win32 DCB codes in termios terms: parity 0-4 none/odd/even/mark/space
// (mark and space through CMSPAR), stop bits 0/1/2 as one/two/two, byte
// size 5-8, baud rates as speed_t where a constant names them.
#pragma once

#include <termios.h>

#include "platform/serial_port.h"

namespace kavo::platform::posix {

// The speed constant of `rate`; false when there is none.
bool SpeedOf(uint32_t rate, speed_t* speed);

// Applies the line settings and the flags termios knows (fParity as INPCK,
// fOutxCtsFlow, fOutX, fInX) to `tio`. A rate without a speed constant
// leaves the speed as it was, for the caller to set by number. false, with
// `tio` untouched, for a code the port cannot take or a rate of 0.
bool ApplyDcb(const SerialState& state, termios* tio);

// The DCB form of `tio`. `flags` supplies the bits termios does not hold
// (DTR and RTS control, ...); fBinary is always set.
SerialState DcbFrom(const termios& tio, uint32_t flags);

}  // namespace kavo::platform::posix
