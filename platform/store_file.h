/// The store engine of a service: all its records in one file.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/export.h"
#include "platform/store_engine.h"

namespace nv {

/// Opens the store file `file`, makes it when it is missing (its directory must be there). Files
/// whose names begin with that of `file` belong to it.
///
/// A change is on disk when its batch is committed, also for a power failure, as far as the disk
/// keeps what it has been told to keep. Each record carries a checksum; opening reads them all.
/// When the file is damaged every undamaged record is kept, each loss is one line on the standard
/// output that begins with "store: ", and the damaged file is kept as `file`.damaged-1 (or -2, ...)
/// with its log; of more than four the newest, which have the highest numbers, stay. A damaged
/// record reaches nobody.
///
/// Where nothing can be written (a full disk, a read-only file system) the records are served all
/// the same, and `StoreEngine::refusal` says why changes cannot be taken until they can. A file
/// that may only be read is then served from a copy in memory.
///
/// Null when another process has the file open or it cannot be found out, or the directory is
/// missing, or the file may not be read, or it is plainly no store file (a text, an undamaged
/// database of other tables), which is left as it is; then `error` (null: not wanted) is one line
/// that says so.
CONFKIT_API std::unique_ptr<StoreEngine> openStoreFile(const std::filesystem::path& file,
                                                       std::string* error);

}  // namespace nv
