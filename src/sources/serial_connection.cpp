#include "sources/serial_connection.h"

#include <new>

#include "log/logger.h"
#include "sources/port_name.h"

namespace kavo {
namespace {

using platform::kMaxDword;
constexpr uint32_t kInvalidHandleValue = 0xFFFFFFFFu;  // as the log shows a closed port
constexpr uint32_t kLineControlMask = platform::kDcbDtrControlMask | platform::kDcbRtsControlMask;

std::unique_ptr<uint8_t[]> AllocateBytes(uint32_t size) {
  std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[size]);
  if (!bytes) Raise(kErrOutOfMemory);
  return bytes;
}

// The port mutex for one scope; a wait that timed out holds nothing.
class PortLock {
 public:
  PortLock(platform::Mutex& mutex, uint32_t ms) : mutex_(mutex), held_(mutex.Lock(ms)) {}
  ~PortLock() {
    if (held_) mutex_.Unlock();
  }
  PortLock(const PortLock&) = delete;
  PortLock& operator=(const PortLock&) = delete;

 private:
  platform::Mutex& mutex_;
  const bool held_;
};

}  // namespace

SerialConnection::SerialConnection()
    : mutex_(platform::Mutex::Create()), readBytes_(AllocateBytes(kReadHint)), readCapacity_(kReadHint) {
  if (!mutex_) Raise(kErrGeneralFailure);
}

SerialConnection::~SerialConnection() { Close(); }

std::shared_ptr<platform::SerialPort> SerialConnection::CurrentPort() {
  std::lock_guard<std::mutex> lock(portSwap_);
  return port_;
}

void SerialConnection::ReplacePort(std::shared_ptr<platform::SerialPort> port) {
  std::lock_guard<std::mutex> lock(portSwap_);
  port_.swap(port);
}

std::shared_ptr<platform::SerialPort> SerialConnection::TakePort() {
  std::lock_guard<std::mutex> lock(portSwap_);
  return std::move(port_);
}

int SerialConnection::Open(const COMPortInfo& port, CIMExceptionImpl* error) {
  LogScope scope(u"Initializing connection to port");
  PortLock lock(*mutex_, platform::kInfinite);
  const int result = CatchInto(error, [&] { OpenLocked(port); });
  if (!result) {
    // A port whose settings were refused is not kept: it is of no use to
    // anyone while this connection holds it exclusively.
    if (std::shared_ptr<platform::SerialPort> failed = TakePort()) failed->Close();
    CatchInto(nullptr, [] { Logger::Instance().Write(u"Error!\n"); });  // the record already tells
  }
  open_ = result;
  return result;
}

void SerialConnection::OpenLocked(const COMPortInfo& port) {
  Logger& log = Logger::Instance();
  if (open_) {
    std::shared_ptr<platform::SerialPort> old = TakePort();
    if (old && !old->Close()) Raise(kErrOperationFailed);
    open_ = 0;
  }
  log.Format(u"COM port name before correction: %s\n", port.Name);
  WideString name;
  if (!CorrectPortName(port.Name, &name)) Raise(kErrGeneralFailure);

  std::shared_ptr<platform::SerialPort> opened = platform::SerialPort::Open(name, platform::SerialAccess::kReadWrite);
  const uint32_t lastError = platform::GetLastError();
  log.Format(u"Create file on %s returned: %x\n", name, opened ? opened->HandleValue() : kInvalidHandleValue);
  if (!opened) {
    log.Format(u"Last error returned %d\n", lastError);
    Raise(kErrPortNotFound, port.Name);
  }
  ReplacePort(opened);

  CheckOrRaise(opened->SetupQueues(kQueueSize, kQueueSize), kErrOperationFailed, port.Name);

  ApplyLineSettings(*opened, port);

  // Return at once with what is queued, else wait up to 700 ms for the
  // first byte.
  platform::SerialTimeouts timeouts;
  if (opened->GetTimeouts(&timeouts)) {
    timeouts.readInterval = kMaxDword;
    timeouts.readTotalMultiplier = kMaxDword;
    timeouts.readTotalConstant = kReadTimeoutMs;
    timeouts.writeTotalMultiplier = kWriteTimeoutPerByteMs;
    timeouts.writeTotalConstant = 0;
    CheckOrRaise(opened->SetTimeouts(timeouts), kErrOperationFailed, port.Name);
    CheckOrRaise(opened->SetEventMask(kEventMask), kErrOperationFailed, port.Name);
  }
  // What came before the line was set up came at another speed: read now,
  // it could pass for text at this one, and a port search would name the
  // wrong speed. (A refusal leaves it: the receiver's next burst is soon.)
  opened->DiscardInput();
}

// DTR on and RTS toggled around each send, the rest as the driver reported
// it. A driver that cannot report its state keeps its current settings.
void SerialConnection::ApplyLineSettings(platform::SerialPort& opened, const COMPortInfo& port) {
  platform::SerialState state;
  if (!opened.GetState(&state)) return;
  state.baudRate = port.BaudRate;
  state.flags = (state.flags & ~kLineControlMask) | platform::kDcbDtrControlEnable | platform::kDcbRtsControlToggle;
  state.byteSize = port.ByteSize;
  state.parity = port.Parity;
  state.stopBits = port.StopBits;
  if (opened.SetState(state)) return;
  // Some serial drivers (Wine's among them) refuse RTS toggling, which a
  // receiver that only talks has no use for anyway.
  Logger::Instance().Format(u"RTS toggle refused (error %d), trying RTS enabled\n", platform::GetLastError());
  state.flags = (state.flags & ~platform::kDcbRtsControlMask) | platform::kDcbRtsControlEnable;
  CheckOrRaise(opened.SetState(state), kErrOperationFailed, port.Name);
}

int SerialConnection::Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) {
  PortLock lock(*mutex_, platform::kInfinite);
  return CatchInto(error, [&] {
    if (!open_) Raise(kErrGeneralFailure);
    if (!buffer || !count || capacity == 0) Raise(kErrInvalidParameter);
    std::shared_ptr<platform::SerialPort> port = CurrentPort();
    // Kept from read to read: one allocation per read would give the
    // reading thread a memory arena of its own.
    if (readCapacity_ < capacity) {
      readBytes_ = AllocateBytes(capacity);
      readCapacity_ = capacity;
    }
    uint32_t got = 0;
    if (!port || !port->Read(readBytes_.get(), capacity - 1, &got)) Raise(kErrOperationFailed);
    converter_.BytesToWide(readBytes_.get(), got, buffer);
    buffer[got] = 0;
    *count = got;
  });
}

int SerialConnection::Write(const char16_t* text, uint32_t length, uint32_t* written, CIMExceptionImpl* error) {
  return CatchInto(error, [&] {
    if (!text && length != 0) Raise(kErrInvalidParameter);
    std::shared_ptr<platform::SerialPort> port = CurrentPort();
    if (!port) Raise(kErrOperationFailed);  // never opened: no handle to write to
    std::unique_ptr<uint8_t[]> bytes = AllocateBytes(length + 1);
    converter_.WideToBytes(text, length, bytes.get());
    uint32_t done = 0;
    if (!port->Write(bytes.get(), length, &done)) Raise(kErrOperationFailed);
    if (written) *written = done;
  });
}

void SerialConnection::CancelRead() {
  if (std::shared_ptr<platform::SerialPort> port = CurrentPort()) port->InterruptRead();
}

void SerialConnection::ResetCancelRead() {
  if (std::shared_ptr<platform::SerialPort> port = CurrentPort()) port->ClearInterrupt();
}

void SerialConnection::Close() {
  Logger& log = Logger::Instance();
  LogScope scope(u"Closing connection");
  PortLock lock(*mutex_, kCloseWaitMs);  // goes on either way
  open_ = 0;
  std::shared_ptr<platform::SerialPort> port = TakePort();
  log.Format(u"File handle: %x\n", port ? port->HandleValue() : kInvalidHandleValue);
  if (port) {
    if (!port->Close()) {
      log.Format(u"Handle close error: %d\n", platform::GetLastError());
    } else {
      log.Write(u"Handle was closed successfuly\n");
    }
  }
}

}  // namespace kavo
