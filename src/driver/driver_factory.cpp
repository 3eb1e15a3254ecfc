#include "driver/driver_factory.h"

#include "driver/gps_reading_thread_impl.h"
#include "driver/null_playback_control.h"
#include "log/logger.h"
#include "nmea/gps_receiver.h"
#include "nmea/receiver_options.h"
#include "platform/platform.h"
#include "sources/nmea_file_playback.h"
#include "sources/serial_connection.h"

namespace kavo {

Ref<GpsDriver> BuildDriver(Ref<DataSource> source, Ref<PlaybackControl> playback, const DriverCallbacks& callbacks) {
  // Options are read for every new driver, so a changed .ini or
  // environment applies to the drivers made after the change.
  return BuildDriver(std::move(source), std::move(playback), callbacks, nmea::LoadReceiverOptions());
}

Ref<GpsDriver> BuildDriver(Ref<DataSource> source, Ref<PlaybackControl> playback, const DriverCallbacks& callbacks,
                           const nmea::ReceiverOptions& options) {
  Ref<GpsReadingThread> readingThread(new GpsReadingThreadImpl(std::move(source)));
  Ref<Receiver> receiver(new GpsReceiver(options));
  Ref<GpsDriver> driver(new GpsDriver(receiver, readingThread, playback));
  driver->Initialise(callbacks);
  return driver;
}

Ref<GpsDriver> CreateDriverFromPort(const COMPortInfo& port, const DriverCallbacks& callbacks) {
  CIMExceptionImpl error;
  Ref<PlaybackControl> playback(new NullPlaybackControl);
  // Some serial drivers need a moment after the previous user let go of the
  // port; the pause comes before every open.
  Logger::Instance().Write(u"some magic Sleep(500) just in case\n");
  platform::Sleep(500);
  Logger::Instance().Write(u"Sleep finised\n");
  Ref<SerialConnection> connection(new SerialConnection);
  CheckOrRaise(connection->Open(port, &error), &error);
  return BuildDriver(Ref<DataSource>(connection.get()), playback, callbacks);
}

Ref<GpsDriver> CreateDriverFromFile(const WideString& path, uint32_t intervalMs, bool repeat,
                                    const DriverCallbacks& callbacks) {
  const nmea::ReceiverOptions options = nmea::LoadReceiverOptions();
  Ref<NmeaFilePlayback> playback(new NmeaFilePlayback);
  playback->Open(path, intervalMs, repeat, options.ReadsMixedStreams());
  return BuildDriver(Ref<DataSource>(playback.get()), Ref<PlaybackControl>(playback.get()), callbacks, options);
}

}  // namespace kavo
