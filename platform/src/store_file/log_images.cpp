#include "platform/src/store_file/log_images.h"

#include <algorithm>

namespace nv {

namespace {

constexpr std::uint32_t kMagic =
    0x377f0682;  // the lowest bit: words of the checksum are big-endian
constexpr std::uint64_t kHeaderSize = 32;
constexpr std::uint64_t kFrameHeaderSize = 24;
constexpr std::uint64_t kFrameSize = kFrameHeaderSize + kPageSize;

}  // namespace

LogImages::LogImages(const std::filesystem::path& log) : file_(log) {
  if (file_.size() < kHeaderSize + kFrameSize) return;
  const bool headerIntact = readHeader();
  readFrames();
  const std::size_t committed = committedFrames();
  if (!headerIntact)
    damaged_ = std::any_of(frames_.begin(), frames_.end(), [](auto& f) { return f.intact; });
  collect(committed);
}

bool LogImages::readHeader() {
  std::array<unsigned char, kHeaderSize> header;
  if (!file_.read(0, header.data(), header.size())) return false;
  bigEndian_ = header[3] & 1;
  written_ = {bigEndian32(&header[24]), bigEndian32(&header[28])};
  computed_ = sum({}, byte_view(header).first(24));
  const bool intact = (bigEndian32(&header[0]) & ~1u) == kMagic &&
                      bigEndian32(&header[8]) == kPageSize && written_ == computed_;
  // The first frame holds the salts too.
  const std::uint64_t saltsAt = intact ? 16 : kHeaderSize + 8;
  file_.read(saltsAt, salts_.data(), salts_.size());
  return intact;
}

void LogImages::readFrames() {
  const std::uint64_t count = (file_.size() - kHeaderSize) / kFrameSize;
  for (std::uint64_t i = 0; i < count; ++i)
    frames_.push_back(readFrame(kHeaderSize + i * kFrameSize));
}

LogImages::Frame LogImages::readFrame(std::uint64_t offset) {
  std::array<unsigned char, kFrameSize> bytes;
  if (!file_.read(offset, bytes.data(), bytes.size())) return {0, false, false, false};
  const auto sumFrom = [&](Sum seed) {
    return sum(sum(seed, byte_view(bytes).first(8)), byte_view(bytes).subspan(kFrameHeaderSize));
  };
  const Sum own{bigEndian32(&bytes[16]), bigEndian32(&bytes[20])};
  // When only the checksum of the frame before was damaged, the computed one still leads on.
  const bool follows = sumFrom(written_) == own || sumFrom(computed_) == own;
  computed_ = sumFrom(written_);
  written_ = own;
  const bool ours = std::equal(salts_.begin(), salts_.end(), bytes.begin() + 8);
  return {bigEndian32(&bytes[0]), bigEndian32(&bytes[4]) != 0, ours, ours && follows};
}

std::size_t LogImages::committedFrames() {
  std::size_t committed = 0, firstBreak = 0;
  for (; firstBreak < frames_.size() && frames_[firstBreak].intact; ++firstBreak)
    if (frames_[firstBreak].commit) committed = firstBreak + 1;

  bool transactionEnded = false;
  for (std::size_t i = firstBreak; i < frames_.size(); ++i) {
    if (transactionEnded && frames_[i].intact) damaged_ = true;
    if (frames_[i].ours && frames_[i].commit) transactionEnded = true;
  }
  if (!damaged_) return committed;
  for (std::size_t i = firstBreak; i < frames_.size(); ++i)
    if (frames_[i].intact && frames_[i].commit) committed = i + 1;
  return committed;
}

void LogImages::collect(std::size_t committed) {
  for (std::size_t i = 0; i < committed; ++i) {
    const Frame& frame = frames_[i];
    if (frame.intact) {
      pages_[frame.page] = {kHeaderSize + i * kFrameSize + kFrameHeaderSize,
                            static_cast<std::uint32_t>(i + 1)};
      lost_.erase(frame.page);
    } else if (frame.ours) {
      pages_.erase(frame.page);
      lost_.insert(frame.page);
    }
  }
}

LogImages::Sum LogImages::sum(Sum seed, byte_view bytes) const {
  for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
    const unsigned char* at = bytes.data() + i;
    seed.a += (bigEndian_ ? bigEndian32(at) : load32(at)) + seed.b;
    seed.b += (bigEndian_ ? bigEndian32(at + 4) : load32(at + 4)) + seed.a;
  }
  return seed;
}

}  // namespace nv
