#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include <Corvane/Transfer/RequestedPartImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

namespace Corvane {

// Fetches one file. What comes is collected in memory while it is little, then in a file under way, which is given its final name when it
// is whole and right. A request that breaks off is continued where that is proven to be right, and made anew where not.
class TreeRun::FileJob final : public Job {
 public:
  FileJob(TreeRun& run, const Wanted& file);

  Order Ask() override;
  bool Take(const Reply& reply, const char* data, std::size_t bytes) override;
  Corvane::Next Finish(const Ending& ending) override;

 private:
  struct Failure {
    ZResult code = TRANSFER_E_DOWNLOAD;
    ZString text;
  };

  // What is there of the file already.
  void Continue(Order& order);
  [[nodiscard]] bool IsContinued(const PartStore::Part& part) const;
  bool ReadOverlap();

  // What comes.
  bool BeginContent(const Reply& reply);
  bool BeginWhole(const Reply& reply);
  bool TakeWhole(const char* data, std::size_t bytes);
  bool TakeRest(const char* data, std::size_t bytes);
  std::size_t Compare(const char* data, std::size_t bytes);
  bool MoveToDisk();
  bool Write(const char* data, std::size_t bytes);
  bool IsRoomFor(unsigned long long bytes);
  void Count(std::size_t received);
  void CountHere(unsigned long long bytes);
  bool Fail(ZResult code, const ZString& text);
  bool FailWriting(int error);
  bool FailStoring(ZResult reason);

  // What came.
  [[nodiscard]] std::optional<Corvane::Next> JudgeRest(const Ending& ending);
  Corvane::Next BeginAnew();
  Corvane::Next End(ZResult code, const ZString& text);
  Corvane::Next Complete(const Ending& ending);
  bool IsRight(unsigned long long size);
  bool HasChecksum();
  bool Place(std::optional<long long> time);
  bool PlaceBuffer(const Descriptor& folder, std::optional<long long> time);
  bool PlacePart(const Descriptor& folder, std::optional<long long> time);

  static constexpr std::size_t kMargin = 32;  // bytes at the end of a part that are fetched again

  TreeRun& m_run;
  const Wanted m_file;
  Item m_item;
  std::string m_url;
  std::string m_buffer;
  Descriptor m_part;                           // open while what comes goes to the disk
  std::optional<RequestedPart> m_requested;    // while only the rest is asked for
  std::array<char, kMargin> m_overlap{};       // what the part holds from there on
  std::string m_validator;                     // of what comes
  std::optional<unsigned long long> m_length;  // of the whole, as the server tells it
  unsigned long long m_received = 0;           // of the whole, when that is asked for
  unsigned long long m_here = 0;               // of the whole, as it is counted
  bool m_hasBegun = false;                     // content has come
  bool m_isChecked = false;                    // against a list of checksums
  unsigned int m_begunAnew = 0;
  std::optional<Failure> m_failure;  // of our own side, which ended the request
};

}  // namespace Corvane
