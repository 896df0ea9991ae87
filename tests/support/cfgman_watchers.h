/// Observers and subscribers of a manager that write down what they are told.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tests/support/cfgman_fixture.h"

namespace test {

/// Logs "hear <id>" with the keys that changed.
class Hearer final : public CfgMan::Link {
 public:
  Hearer(CfgMan& manager, nv::testkit::Recorder& log) : manager_(manager.watch()), log_(log) {
    manager.links.push_back(this);
  }
  ~Hearer() {
    if (!manager_.gone()) std::erase(manager_.get()->links, static_cast<CfgMan::Link*>(this));
  }

  void update(CfgMan::Item* item, const message&, const message&, const message&, const message&,
              const vset<unsigned>& keys) override {
    std::ostringstream text;
    text << "hear " << item->id << std::hex;
    for (const auto uid : keys) text << ' ' << uid;
    log_.log.push_back(text.str());
    if (const auto call = then) call(item);
  }
  void print(std::ostream& os) override { os << "{hearer}"; }

  /// Called in each update, when set.
  std::function<void(CfgMan::Item*)> then;

 private:
  CfgMan::Watch manager_;
  nv::testkit::Recorder& log_;
};

/// A subscription that asks `accepts`.
class Filter : public CfgMan::Subscription {
 public:
  using Accepts = std::function<bool(unsigned, const message&)>;
  Filter(const message& req, std::uint32_t getFlags, Accepts test)
      : Subscription(req, getFlags), accepts(std::move(test)) {}
  bool interesting(unsigned id, const message& msg) override { return Accepts(accepts)(id, msg); }

  Accepts accepts;
};

/// Part of what an item keeps: logs its release.
class Part : public CfgMan::ItemLink {
 public:
  Part(std::string name, nv::testkit::Recorder& log, std::function<void()> then = {})
      : name_(std::move(name)), log_(log), then_(std::move(then)) {}
  void release() override {
    log_.log.push_back("release " + name_);
    if (then_) then_();
    ItemLink::release();
  }

 private:
  std::string name_;
  nv::testkit::Recorder& log_;
  std::function<void()> then_;
};

}  // namespace test
