/// The pages in the write-ahead log of a store file, damaged or not.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <vector>

#include "platform/src/store_file/file_format.h"

namespace nv {

/// Each frame of the log holds a page, and a checksum that continues the one of the frame before.
/// SQLite stops at the first frame that does not fit, as it must: that is how a transaction looks
/// which never was complete. Where undamaged frames follow the end of that transaction the log was
/// damaged later, since the next transaction is written only when the one before is on disk.
///
/// This reader goes on after a damaged frame, from the checksum that the frame holds.
class LogImages {
 public:
  explicit LogImages(const std::filesystem::path& log);

  bool damaged() const { return damaged_; }

  struct Image {
    std::uint64_t offset;  // of the page, in the log
    std::uint32_t frame;   // from 1: how late the image was written
  };
  /// The newest committed image of each page that has an undamaged one.
  const std::map<std::uint32_t, Image>& pages() const { return pages_; }
  /// Pages whose newest image is damaged.
  const std::set<std::uint32_t>& lost() const { return lost_; }

 private:
  struct Frame {
    std::uint32_t page;
    bool commit;  // the last one of a transaction
    bool ours;    // not left over from an earlier use of the log
    bool intact;
  };
  struct Sum {
    std::uint32_t a = 0, b = 0;
    bool operator==(const Sum&) const = default;
  };

  bool readHeader();
  void readFrames();
  Frame readFrame(std::uint64_t offset);
  std::size_t committedFrames();
  void collect(std::size_t committed);
  Sum sum(Sum seed, byte_view bytes) const;

  RawFile file_;
  bool bigEndian_ = false;
  std::array<unsigned char, 8> salts_{};
  Sum written_, computed_;  // of the frame read last
  std::vector<Frame> frames_;
  bool damaged_ = false;
  std::map<std::uint32_t, Image> pages_;
  std::set<std::uint32_t> lost_;
};

}  // namespace nv
