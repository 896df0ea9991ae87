#include "examples/firewall/firewall.h"

#include <iostream>

#include "examples/firewall/nft.h"
#include "examples/firewall/program_rules.h"
#include "examples/firewall/ruleset.h"
#include "examples/support/network.h"

namespace firewall {

using nv::message;

namespace {

Rule& rule(OObject* obj) { return static_cast<Rule&>(*obj); }

std::string nameOf(const Rule& rule) {
  return "rule " + std::to_string(rule.id) + " (" + rule.label() + ")";
}

message refused(const std::string& why) { return why.empty() ? message() : nv::failedMsg(why); }

message refusedAsProgram(const Rule& rule, const std::string& deed) {
  return nv::failedMsg("rule " + std::to_string(rule.id) +
                       " comes from the program: it cannot be " + deed);
}

void say(const std::string& what) { std::cerr << "firewall: " << what << std::endl; }

}  // namespace

Firewall::Firewall(const Box& box)
    : AOmap("firewall", kLowestId, kHighestId),
      withKernel_(box.withKernel),
      file_("firewall", box.rulesetFile, [this] { return fileText(); }) {
  describe("firewall", dictionary());
}

// The start.

void Firewall::init() {
  AOmap::init();
  placeProgramRules();
  if (withKernel_) startKernel();
  startChecking();
  file_.write();
}

/// After the store was read: what it does not hold would confuse the count of what it does.
void Firewall::placeProgramRules() {
  auto* next = getNextObj(nullptr);
  for (auto& given : makeProgramRules()) {
    while (next != nullptr && rule(next).behind < given->id) next = getNextObj(next);
    add(given.release(), next);
  }
}

void Firewall::startChecking() {
  if (const auto why = nftComplaint(); !why.empty())
    say("the ruleset file is neither checked nor loaded: " + why);
  else
    file_.check = checkRuleset;
}

void Firewall::startKernel() {
  const auto why = examples::enterOwnNetwork();
  if (!why.empty()) return say("the kernel is left alone: " + why);
  isInKernel_ = true;
  file_.written = [this] { tellKernel(); };
}

void Firewall::tellKernel() {
  if (!isInKernel_ || !file_.check) return;
  const auto why = loadRuleset(file_.path());
  if (why.empty()) return;
  say("the kernel is left alone from here on: " + why);
  isInKernel_ = false;
}

// What the map asks.

void Firewall::copyObject(OObject* dst, OObject* src) {
  auto &to = rule(dst), &from = rule(src);
  to.id = from.id;
  to.texts = from.texts;
  to.match = from.match;
  to.behind = from.behind;
  to.isOfProgram = from.isOfProgram;
}

message Firewall::checkRestore(OObject* obj) {
  if (obj->id <= kProgramRules)
    return nv::failedMsg("the id " + std::to_string(obj->id) + " is a program rule's");
  return refused(refusal(rule(obj), nullptr));
}

message Firewall::checkAdd(OObject* obj, OObject* next) {
  rule(obj).behind = behindWhat(next);
  return refused(refusal(rule(obj), next));
}

message Firewall::checkChange(OObject*, OObject* obj, OObject* next) {
  if (rule(obj).isOfProgram) return refusedAsProgram(rule(obj), "changed");
  return refused(refusal(rule(obj), next));
}

message Firewall::checkRemove(OObject* obj, OObject*) {
  return rule(obj).isOfProgram ? refusedAsProgram(rule(obj), "removed") : message();
}

message Firewall::checkMove(OObject* obj, OObject*, OObject* newNext) {
  if (rule(obj).isOfProgram) return refusedAsProgram(rule(obj), "moved");
  if (auto why = refusal(rule(obj), newNext); !why.empty()) return nv::failedMsg(why);
  rule(obj).behind = behindWhat(newNext);  // now: the map stores it before it tells of the move
  return {};
}

std::string Firewall::refusal(const Rule& rule, OObject* next) {
  if (auto why = rule.texts.fault(); !why.empty()) return why;
  bool isBehind = false;
  for (auto* at = getNextObj(nullptr); at != nullptr; at = getNextObj(at)) {
    isBehind = isBehind || at == next;
    const auto& other = firewall::rule(at);
    if (other.id == rule.id) continue;
    if (!isBehind && other.covers(rule))
      return "it would never match: " + nameOf(other) + " stands before it";
    if (isBehind && rule.covers(other))
      return nameOf(other) + " would never match: it would stand behind this one";
  }
  return "";
}

/// What `behind` is of a rule that stands before `next`.
std::uint32_t Firewall::behindWhat(OObject* next) {
  auto* const previous = getPrevObj(next);
  if (previous == nullptr) return 0;
  return rule(previous).isOfProgram ? previous->id : rule(previous).behind;
}

std::string Firewall::fileText() {
  std::string text = kRulesetHead;
  for (auto* at = getNextObj(nullptr); at != nullptr; at = getNextObj(at))
    text += rulesetLines(rule(at));
  return text + kRulesetEnd;
}

}  // namespace firewall
