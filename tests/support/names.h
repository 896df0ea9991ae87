/// What tests call the shared names of the library.
#pragma once

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/message.h"

namespace test {

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::kHeadId;
using nv::kNoId;
using nv::message;

}  // namespace test
