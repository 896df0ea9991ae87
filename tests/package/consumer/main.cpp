// A program outside the project: the installed headers and library are all it has.
#include "platform/message.h"

int main() {
  nv::message message;
  message.insert(nv::u32_id(1), 7);
  return message.get(nv::u32_id(1)) == 7 ? 0 : 1;
}
