/// A store engine that is never seen at work.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "platform/store_engine.h"

namespace nv::testkit {

/// Does what another engine does, and waits for each batch when it is submitted: the outcome can be
/// taken at once.
class PromptEngine : public StoreEngine {
 public:
  explicit PromptEngine(std::unique_ptr<StoreEngine> engine) : engine_(std::move(engine)) {}

  Opened open(std::string_view name) override { return engine_->open(name); }
  Found read(unsigned table, std::uint32_t id) override { return engine_->read(table, id); }
  void submit(StoreBatch batch) override {
    engine_->submit(std::move(batch));
    outcome_ = engine_->wait();
  }
  std::optional<Outcome> outcome() override { return std::exchange(outcome_, std::nullopt); }
  Outcome wait() override { return *outcome(); }
  void onOutcome(std::function<void()> wake) override { engine_->onOutcome(std::move(wake)); }
  std::string refusal() override { return engine_->refusal(); }

 private:
  std::unique_ptr<StoreEngine> engine_;
  std::optional<Outcome> outcome_;
};

}  // namespace nv::testkit
