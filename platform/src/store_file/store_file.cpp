#include "platform/store_file.h"

#include "platform/src/store_file/sqlite_engine.h"

namespace nv {

std::unique_ptr<StoreEngine> openStoreFile(const std::filesystem::path& file, std::string* error) {
  auto engine = std::make_unique<SqliteEngine>(file);
  if (error) *error = engine->error();
  if (!engine->error().empty()) return nullptr;
  return engine;
}

}  // namespace nv
