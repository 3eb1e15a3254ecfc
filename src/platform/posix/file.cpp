#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/errno_map.h"
#include "utf_conversion.h"

namespace kavo::platform {
namespace {

class PosixFile final : public File {
 public:
  explicit PosixFile(int fd) : fd_(fd) {}
  ~PosixFile() override { close(fd_); }

  bool Read(void* buffer, uint32_t size, uint32_t* got) override {
    ssize_t n;
    do {
      n = read(fd_, buffer, size);
    } while (n < 0 && errno == EINTR);
    if (n < 0) return Fail(got);
    *got = static_cast<uint32_t>(n);
    return true;
  }

  bool Write(const void* data, uint32_t size, uint32_t* written) override {
    const char* p = static_cast<const char*>(data);
    uint32_t done = 0;
    while (done < size) {
      const ssize_t n = write(fd_, p + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return Fail(written);
      done += static_cast<uint32_t>(n);
    }
    *written = done;
    return true;
  }

  bool SeekFromStart(uint32_t offset) override {
    if (lseek(fd_, static_cast<off_t>(offset), SEEK_SET) < 0) {
      posix::SetLastErrorFromErrno();
      return false;
    }
    return true;
  }

  bool Flush() override {
    if (fsync(fd_) != 0 && errno != EINVAL) {
      posix::SetLastErrorFromErrno();
      return false;
    }
    return true;
  }

 private:
  static bool Fail(uint32_t* count) {
    posix::SetLastErrorFromErrno();
    *count = 0;
    return false;
  }
  int fd_;
};

}  // namespace

std::unique_ptr<File> File::Open(const std::u16string& path, FileAccess access, FileDisposition disposition) {
  int flags = O_CLOEXEC | (access == FileAccess::kRead ? O_RDONLY : O_WRONLY);
  if (disposition == FileDisposition::kCreateAlways) flags |= O_CREAT | O_TRUNC;
  const int fd = open(unicode::Utf16ToUtf8(path).c_str(), flags, 0644);
  if (fd < 0) {
    posix::SetLastErrorFromErrno();
    return nullptr;
  }
  struct stat info {};
  if (fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
    close(fd);
    SetLastError(kErrorAccessDenied);
    return nullptr;
  }
  return std::make_unique<PosixFile>(fd);
}

bool FileExists(const std::u16string& path) {
  struct stat info {};
  return stat(unicode::Utf16ToUtf8(path).c_str(), &info) == 0;
}

}  // namespace kavo::platform
