// The service of the cable: tells of phones, keeps pair records, connects to ports.
#pragma once

#include <memory>

class Bus;
class Channel;

/// Serves one client until it has gone, be it as the service of the cable or, once connected, as a phone.
void serveClient(Bus &bus, const std::shared_ptr<Channel> &channel);
