// A build without libmosquitto (the Windows cross build): `--mqtt` is
// refused, and `--help` says why.
#include "serve/broker_link.h"

namespace kavo::serve {

bool MqttBuiltIn() { return false; }

std::unique_ptr<BrokerLink> MakeBrokerLink(const BrokerLinkSettings&) { return nullptr; }

}  // namespace kavo::serve
