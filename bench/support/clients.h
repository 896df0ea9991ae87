/// Clients of a service in another process, and how long it takes to answer them.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>

#include "platform/message.h"
#include "tests/support/raw_client.h"

namespace bench {

using nv::testkit::RawClient;
using Clock = std::chrono::steady_clock;
using Micros = std::chrono::duration<double, std::micro>;

/// The directory whose disk is measured: CONFKIT_BENCH_DIR, or the current one.
std::filesystem::path benchDirectory();

/// Connects as soon as somebody listens.
void connect(RawClient& client, const std::filesystem::path& socket);
/// Sends the bytes of a request and waits for the answer.
void ask(RawClient& client, const std::vector<unsigned char>& request);

/// Microseconds a request, `count` in all, of which each client has `each` under way.
/// `request(n)` makes the n-th; its key::tag is set here. An error ends the program.
double inFlight(std::deque<RawClient>& clients, unsigned each, unsigned count,
                const std::function<nv::message(unsigned)>& request);

}  // namespace bench
