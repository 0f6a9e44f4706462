// mirror URL DIRECTORY [IGNORED...]: mirrors a remote directory, without the ignored names, and tells what it did.
//
// Shows a host's own observer, which is told when each answer begins.

#include <clocale>
#include <cstdio>

#include <Corvane/MultiDownload.h>

#include "examples/host.h"

// Counts the answers that were acceptable: the listing's and one for each file that is not empty.
class AnswerCounter : public Corvane::ZTransfer::Observer {
 public:
  void Update(int event, long value) override {
    if (event == 1 && static_cast<Corvane::ZResult>(value) == Corvane::TRANSFER_E_IN_PROGRESS) ++m_answers;
  }
  [[nodiscard]] int GetAnswers() const { return m_answers; }

 private:
  int m_answers = 0;
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  AnswerCounter counter;
  Corvane::Container::ZStringList ignored;
  for (int i = 3; i < argc; ++i) ignored.push_back(argv[i]);
  Corvane::ZMultiDownload mirror;
  if (!VerifyServers(mirror)) return 1;
  mirror.SetIgnoreList(ignored);
  mirror.Attach(&counter);

  const Corvane::ZResult result = mirror.Download(argv[1], argv[2], /*resume=*/true);
  if (Corvane::IsFailure(result)) return TellFailure(mirror, result);
  const Corvane::ZMultiDownload::Statistics files = mirror.GetStatistics();
  std::printf("%zu of %zu files fetched, %llu bytes are here, %d answers came\n", files.filesFetched, files.filesKnown,
              mirror.GetDownloadSize(), counter.GetAnswers());
}
