#include "simulated_host/ticker.h"

#include <utility>

namespace tvx::tool {

Ticker::Ticker(std::chrono::milliseconds interval, std::function<void()> tick)
    : interval_(interval), tick_(std::move(tick)), timer_(context_, interval) {
  AwaitNext();
  thread_ = std::thread([this] { context_.run(); });
}

Ticker::~Ticker() {
  context_.stop();
  thread_.join();
}

void Ticker::AwaitNext() {
  timer_.async_wait([this](const boost::system::error_code&) {
    tick_();
    timer_.expires_at(timer_.expiry() + interval_);
    AwaitNext();
  });
}

}  // namespace tvx::tool
