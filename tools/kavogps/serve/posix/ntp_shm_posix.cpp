// The NTP shared-memory reference clock that chronyd (refclock SHM) and
// ntpd (driver 28) read: a System V segment per unit, written under the
// count/valid handshake that lets a reader tell a torn sample.
#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "serve/time_outputs.h"

namespace kavo::serve {
namespace {

// The segment's layout, as the daemons read it.
struct ShmTime {
  int mode;  // 1: readers check that count did not move while they read
  volatile int count;
  time_t clockTimeStampSec;  // the receiver's time
  int clockTimeStampUSec;
  time_t receiveTimeStampSec;  // the system clock when it came
  int receiveTimeStampUSec;
  int leap;
  int precision;  // log2 of seconds
  int nsamples;
  volatile int valid;
  unsigned clockTimeStampNSec;
  unsigned receiveTimeStampNSec;
  int dummy[8];
};
constexpr key_t kNtpShmKey = 0x4E545030;
// NMEA alone is good to some tens of milliseconds: 2^-4 s.
constexpr int kNmeaPrecision = -4;

void Split(std::chrono::system_clock::time_point time, time_t* seconds, int* micro, unsigned* nano) {
  const auto since = time.time_since_epoch();
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(since);
  const auto fraction = std::chrono::duration_cast<std::chrono::nanoseconds>(since - whole).count();
  *seconds = static_cast<time_t>(whole.count());
  *micro = static_cast<int>(fraction / 1000);
  *nano = static_cast<unsigned>(fraction);
}

class NtpShm : public TimeOutput {
 public:
  NtpShm(int unit, std::string device, std::ostream& err) : unit_(unit), device_(std::move(device)), err_(err) {}
  ~NtpShm() override {
    if (segment_) shmdt(segment_);
  }

  void Sample(const FixTime& fix) override {
    if (!Attach()) return;
    ShmTime& shm = *segment_;
    shm.valid = 0;
    ++shm.count;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    shm.mode = 1;
    Split(fix.utc, &shm.clockTimeStampSec, &shm.clockTimeStampUSec, &shm.clockTimeStampNSec);
    Split(fix.arrival, &shm.receiveTimeStampSec, &shm.receiveTimeStampUSec, &shm.receiveTimeStampNSec);
    shm.leap = fix.leap;
    shm.precision = kNmeaPrecision;
    shm.nsamples = 0;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    ++shm.count;
    shm.valid = 1;
  }

 private:
  // Whether the segment is there to write; one that was removed (a daemon
  // restarted and made a new one) is let go, and found again.
  bool Attach() {
    if (segment_) {
      shmid_ds status{};
      if (shmctl(id_, IPC_STAT, &status) == 0 && !(status.shm_perm.mode & SHM_DEST)) return true;
      shmdt(segment_);
      segment_ = nullptr;
    }
    id_ = shmget(kNtpShmKey + unit_, sizeof(ShmTime), IPC_CREAT | 0600);
    void* const segment = id_ < 0 ? reinterpret_cast<void*>(-1) : shmat(id_, nullptr, 0);
    if (segment == reinterpret_cast<void*>(-1)) {
      Say(errno);
      return false;
    }
    segment_ = static_cast<ShmTime*>(segment);
    Say(0);
    return true;
  }

  // Tells each change of fortune once.
  void Say(int error) {
    if (error == said_) return;
    const bool recovered = error == 0;
    said_ = error;
    char key[16];
    std::snprintf(key, sizeof key, "0x%08X", static_cast<unsigned>(kNtpShmKey + unit_));
    const std::string segment = "the NTP shared memory of unit " + std::to_string(unit_) + " (key " + key + ")";
    err_ << "kavogps serve: " << device_ << ": ";
    if (recovered)
      err_ << "writing to " << segment << " again\n";
    else if (error == EACCES || error == EPERM)
      err_ << segment
           << " belongs to another user, who has not let this one write it ('perm 0666' on chronyd's "
              "refclock line does); trying again with each fix\n";
    else if (error == EINVAL)
      err_ << segment << " exists, too small for the NTP layout; trying again with each fix\n";
    else
      err_ << "cannot use " << segment << ": " << std::strerror(error) << "; trying again with each fix\n";
  }

  int unit_;
  std::string device_;
  std::ostream& err_;
  int id_ = -1;
  ShmTime* segment_ = nullptr;
  int said_ = 0;
};

}  // namespace

std::unique_ptr<TimeOutput> NtpShmOutput(int unit, const std::string& device, std::ostream& err) {
  return std::make_unique<NtpShm>(unit, device, err);
}

}  // namespace kavo::serve
