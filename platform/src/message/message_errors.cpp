#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/message.h"

namespace nv {

message errorMsg(unsigned code, std::string_view text) {
  return {{key::errorCode, code}, {key::errorText, text}};
}

message failedMsg(std::string_view text) { return errorMsg(err::failed, text); }

bool isError(const message& reply, unsigned* code, std::string* text) {
  if (!reply.has(key::errorCode)) return false;
  if (code != nullptr) *code = reply.get(key::errorCode);
  if (text != nullptr) *text = reply.get(key::errorText);
  return true;
}

std::string getError(const message& reply) {
  return isError(reply) ? reply.get(key::errorText) : std::string{};
}

void cleanSys(message& request) {
  std::vector<std::uint32_t> envelope;
  for (const field f : request) {
    if ((f.id() & 0xffff00) == 0xff0000) envelope.push_back(f.uid());
  }
  for (const std::uint32_t uid : envelope) request.erase(uid);
}

}  // namespace nv
