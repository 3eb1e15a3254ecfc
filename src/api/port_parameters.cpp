#include "api/port_parameters.h"

#include <algorithm>
#include <iterator>

namespace kavo::api {
namespace {

// 300 and 600 are left out on purpose, and nothing above 256000.
constexpr int64_t kBaudRates[] = {110,   1200,  2400,  4800,   9600,   14400, 19200,
                                  38400, 56000, 57600, 115200, 128000, 256000};
constexpr int64_t kMaxParity = 4;    // none, odd, even, mark, space
constexpr int64_t kMaxStopBits = 2;  // one, one and a half, two

bool InTables(int64_t baudRate, int64_t parity, int64_t stopBits) {
  return std::find(std::begin(kBaudRates), std::end(kBaudRates), baudRate) != std::end(kBaudRates) && parity >= 0 &&
         parity <= kMaxParity && stopBits >= 0 && stopBits <= kMaxStopBits;
}

}  // namespace

bool ValidParams(const COMPortParams& params) { return InTables(params.BaudRate, params.Parity, params.StopBits); }

bool StoreParams(const COMPortParams& params, COMPortInfo* port) {
  if (!ValidParams(params)) return false;
  port->BaudRate = static_cast<uint32_t>(params.BaudRate);
  port->Parity = static_cast<uint8_t>(params.Parity);
  port->StopBits = static_cast<uint8_t>(params.StopBits);
  port->ByteSize = static_cast<uint8_t>(params.ByteSize);
  return true;
}

bool LoadParams(const COMPortInfo& port, COMPortParams* params) {
  if (!InTables(port.BaudRate, port.Parity, port.StopBits)) return false;
  params->BaudRate = static_cast<int32_t>(port.BaudRate);
  params->Parity = port.Parity;
  params->StopBits = port.StopBits;
  params->ByteSize = port.ByteSize;
  return true;
}

}  // namespace kavo::api
