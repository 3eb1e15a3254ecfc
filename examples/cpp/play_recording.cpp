// Plays a recorded NMEA file through the C++ layer of KavoMobileGPS and
// prints each new position as the library reports it, in degrees, metres
// and metres per second:  play_recording_cpp FILE [MS_PER_LINE]
#include <KavoMobileGPS.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

using namespace std::chrono_literals;

namespace {

// "12:35:19 UTC", "-" without a time.
std::string TimeText(const std::optional<kavogps::Time>& time) {
    if (!time) return "-";
    const long long s = time->TimeOfDay().count() / 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld %s", s / 3600, s / 60 % 60, s % 60,
                  time->Type() == kavogps::TimeType::kLocalClock ? "local" : "UTC");
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE [MS_PER_LINE]\n", argv[0]);
        return 2;
    }
    const std::chrono::milliseconds perLine(argc > 2 ? std::atoi(argv[2]) : 100);

    // The callbacks run on the library's threads: what they share with
    // main() is guarded by this mutex.
    std::mutex mutex;
    std::condition_variable statusChanged;
    kavogps::Status status = kavogps::Status::kStopped;
    bool received = false;
    int positions = 0;

    kavogps::Callbacks callbacks;
    callbacks.onStatus = [&](kavogps::Status now) {
        std::lock_guard<std::mutex> lock(mutex);
        status = now;
        received = received || now == kavogps::Status::kReceiving;
        statusChanged.notify_all();
    };
    callbacks.onData = [&](uint32_t changed, const kavogps::Location& at) {
        if (!(changed & GPS_CHANGED_POSITION) || !at.position) return;
        std::lock_guard<std::mutex> lock(mutex);
        ++positions;
        std::printf("%10.6f %11.6f %7.1f m %6.2f m/s %s\n", at.position->latitude, at.position->longitude,
                    at.altitudeMetres.value_or(0), at.speedMetresPerSecond.value_or(0), TimeText(at.time).c_str());
    };

    std::error_code error;
    kavogps::Driver driver = kavogps::Driver::PlayFile(argv[1], perLine, false, callbacks, error);
    if (error) {
        std::fprintf(stderr, "cannot play %s: %s\n", argv[1], error.message().c_str());
        return 1;
    }
    // The end of the recording shows as a time-out: no text for this long.
    driver.SetTimeout(2 * perLine + 1s);
    driver.Start();

    // Until the first NMEA sentence the status stays kStopped, and for good
    // on a file without one; text without one turns it kNoSentence after 3 s.
    const char* trouble = nullptr;
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!statusChanged.wait_for(lock, 3s + 4 * perLine, [&] { return status != kavogps::Status::kStopped; }))
            trouble = "no NMEA sentence: the file is empty or holds other text";
        statusChanged.wait(lock, [&] {
            return trouble || status == kavogps::Status::kTimeout || status == kavogps::Status::kNoSentence ||
                   (received && status == kavogps::Status::kStopped);
        });
        if (status == kavogps::Status::kNoSentence) trouble = "text, but no NMEA sentence the library reads";
        if (received && status == kavogps::Status::kStopped) trouble = "the file could not be read to its end";
    }
    driver.Stop();

    if (trouble) {
        std::fprintf(stderr, "%s: %s\n", argv[1], trouble);
        return 1;
    }
    std::printf("%d positions reported, %d satellites in view at the end\n", positions, driver.GetSatellites().Count());
    return positions > 0 ? 0 : 1;
}
