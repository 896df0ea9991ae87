/// A file through which other programs learn what a service keeps.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/timer.h"

namespace examples {

/// Brings a file up to date before the loop sleeps, when it was marked as outdated: any number of
/// changes in one pass are one file, and the file is there before anybody is told of them. It is
/// ahead of the store while a commit is under way; should that fail, the next start writes it from
/// the store.
///
/// Writing waits for the disk. When the file cannot be written, one line on the standard error
/// stream says so, and it is tried again after `kRetryInterval`; the same fault is not told twice.
/// Outdated at first.
class KeptFile {
 public:
  /// How long after a file that could not be written it is tried again, in milliseconds.
  static constexpr unsigned kRetryInterval = 5000;

  /// `text` is asked for what the file should say. Lines begin with the name of the service. The
  /// directory of `file` must be there.
  KeptFile(std::string service, std::filesystem::path file, std::function<std::string()> text);
  KeptFile(const KeptFile&) = delete;

  void outdate() { isOutdated_ = true; }
  /// Writes it now if it is outdated.
  void write();

  const std::filesystem::path& path() const { return file_; }

  /// Why a text must not take the place of the old one; see `replaceFile`. May be empty.
  std::function<std::string(const std::filesystem::path& fresh)> check;
  /// Told after each time the file was written. May be empty.
  std::function<void()> written;

 private:
  std::string service_;
  std::filesystem::path file_;
  std::function<std::string()> text_;
  bool isOutdated_ = true;
  std::string fault_;
  nv::Timer retry_;
  /// What the loop holds of this object, since it keeps its hooks for ever.
  std::shared_ptr<KeptFile*> self_ = std::make_shared<KeptFile*>(this);
};

}  // namespace examples
