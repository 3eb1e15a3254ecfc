#include "platform/win32/win32_handles.h"

namespace kavo::platform {

namespace win32 {

bool ReadHandle(HANDLE handle, void* buffer, uint32_t size, uint32_t* got) {
  DWORD n = 0;
  const bool ok = ReadFile(handle, buffer, size, &n, nullptr) != FALSE;
  *got = ok ? n : 0;
  return ok;
}

bool WriteHandle(HANDLE handle, const void* data, uint32_t size, uint32_t* written) {
  DWORD n = 0;
  const bool ok = WriteFile(handle, data, size, &n, nullptr) != FALSE;
  *written = ok ? n : 0;
  return ok;
}

}  // namespace win32

namespace {

class Win32File final : public File {
 public:
  explicit Win32File(HANDLE handle) : handle_(handle) {}
  ~Win32File() override { CloseHandle(handle_); }

  bool Read(void* buffer, uint32_t size, uint32_t* got) override {
    return win32::ReadHandle(handle_, buffer, size, got);
  }
  bool Write(const void* data, uint32_t size, uint32_t* written) override {
    return win32::WriteHandle(handle_, data, size, written);
  }

  bool SeekFromStart(uint32_t offset) override {
    // Offsets above 2 GiB need the high part to say they are not negative.
    LONG high = 0;
    const DWORD low = SetFilePointer(handle_, static_cast<LONG>(offset), &high, FILE_BEGIN);
    return low != INVALID_SET_FILE_POINTER || ::GetLastError() == NO_ERROR;
  }

  bool Flush() override { return FlushFileBuffers(handle_) != FALSE; }

 private:
  HANDLE handle_;
};

}  // namespace

std::unique_ptr<File> File::Open(const std::u16string& path, FileAccess access, FileDisposition disposition) {
  const bool read = access == FileAccess::kRead;
  const DWORD create = disposition == FileDisposition::kCreateAlways ? CREATE_ALWAYS : OPEN_EXISTING;
  // Readers share with readers; a writer lets others read what it writes.
  HANDLE handle = CreateFileW(win32::Wide(path), read ? GENERIC_READ : GENERIC_WRITE, FILE_SHARE_READ, nullptr, create,
                              read ? FILE_ATTRIBUTE_NORMAL : 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  return std::make_unique<Win32File>(handle);
}

bool FileExists(const std::u16string& path) { return GetFileAttributesW(win32::Wide(path)) != INVALID_FILE_ATTRIBUTES; }

}  // namespace kavo::platform
