#include <mutex>
#include <utility>

#include <Corvane/Transfer.h>

#include "tests/torture/TransferRun.h"

// Posts: what the server got and what came back.
namespace CorvaneTest {
namespace {

using namespace Corvane;

// Answers with a text, and keeps the last body that came.
class PostBox {
 public:
  [[nodiscard]] Responder Serve() {
    return [this](Connection& peer, const Request& request) {
      {
        const std::lock_guard guard(m_mutex);
        m_body = request.body;
      }
      Status(200, MakeText(1000))(peer, request);
    };
  }
  [[nodiscard]] std::string Body() const {
    const std::lock_guard guard(m_mutex);
    return m_body;
  }

 private:
  mutable std::mutex m_mutex;
  std::string m_body;  // guarded by m_mutex
};

// A base class, so that it is there before the server.
struct WithPostBox {
  PostBox box;
};

class PostRun : private WithPostBox, public TransferRun {
 public:
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    if (outcome.code != Expected()) return;
    const std::string body = box.Body();
    EXPECT_TRUE(body == posted || (body.empty() && MayBeEmpty(outcome)))
        << "the server got another body, of " << body.size() << " bytes";
    EXPECT_TRUE(Answer() == MakeText(1000)) << "the answer is another";
  }

 protected:
  explicit PostRun(std::string expected) : TransferRun(box.Serve()), posted(std::move(expected)) {}
  [[nodiscard]] virtual bool MayBeEmpty(const RunOutcome& /*outcome*/) const { return false; }
  [[nodiscard]] virtual std::string Answer() const { return Narrow(result); }

  const std::string posted;
  ZString result;
};

class FieldRun final : public PostRun {
 public:
  FieldRun() : PostRun("name=a value") {}
  ZResult Execute() override { return transfer->Post(url, m_name, m_value, result); }

 private:
  const ZString m_name = L"name";
  const ZString m_value = L"a value";
};

class FieldsRun final : public PostRun {
 public:
  FieldsRun() : PostRun("a=1&b=2&c=" + MakeText(500)) {}
  ZResult Execute() override { return transfer->Post(url, m_fields, result); }

 private:
  const ZMap<ZString, ZString, ZLtstr> m_fields = {{L"b", L"2"}, {L"a", L"1"}, {L"c", Wide(MakeText(500))}};
};

class DataRun final : public PostRun {
 public:
  DataRun() : PostRun(MakeText(30000)) {}
  ZResult Execute() override { return transfer->PostData(url, m_data, result); }

 private:
  const ZString m_data = Wide(posted);
};

class UploadRun final : public PostRun {
 public:
  UploadRun() : PostRun(MakePattern(30000, 9)) {}
  void Prepare() override {
    PostRun::Prepare();
    // A server waits for the rest of a body that libcurl could not read.
    EXPECT_THAT(transfer->SetTimeout(1), IsCode(BASE_S_OK));
    WriteFile(room / "in", posted);
  }
  ZResult Execute() override { return transfer->PostFile(url, m_in, m_out); }

 protected:
  // A file whose size cannot be read counts as empty.
  [[nodiscard]] bool MayBeEmpty(const RunOutcome& outcome) const override { return outcome.target == Target::kStatus; }
  [[nodiscard]] std::string Answer() const override { return ReadFile(room / "out"); }

 private:
  const ZString m_in = WidePath(room / "in");
  const ZString m_out = WidePath(room / "out");
};

}  // namespace

std::vector<RunKind> PostRuns() {
  return {{"PostedField", &MakeRun<FieldRun>, {}},
          {"PostedFields", &MakeRun<FieldsRun>, {}},
          {"PostedData", &MakeRun<DataRun>, {}},
          {"PostedFile",
           &MakeRun<UploadRun>,
           {Target::kOpen, Target::kRead, Target::kWrite, Target::kStatus, Target::kClose, Target::kControl,
            Target::kStream}}};
}

}  // namespace CorvaneTest
