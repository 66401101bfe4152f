// A key that is accepted is written as a text that reads the same. No bytes are a signature of the message by the key below
// except the two in the corpus: its secret half is gone.
#include "privileged/tool/Minisign.h"

#include "fuzz/Target.h"
#include "privileged/tool/Failure.h"

namespace {

using namespace AssistantTool;

constexpr std::string_view key = "RWQR57cWG5Tu+bq2QPGwtefFPgqbbmZUQgPnl69w4IOOPvIZNntQYgf6";
constexpr std::string_view message = "hi\n";

// The result of `read`, or nullopt when it refuses with a reason.
template <typename Read>
auto tried(const Read& read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const Failure& failure) {
    fuzz::require(!std::string_view(failure.what()).empty(), "a refusal has a reason");
    return std::nullopt;
  }
}

void checkKey(const std::optional<Minisign::PublicKey>& found) {
  if (!found) return;
  fuzz::require(Minisign::publicKeyOfText(Minisign::textOf(*found)) == *found, "what is written reads the same");
  const auto length = Minisign::textOf(found->identifier).size();
  fuzz::require(length >= 1 && length <= 16, "an identifier has its length");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = fuzz::text(data, size);
  checkKey(tried([bytes] { return Minisign::publicKeyOfFile(bytes); }));
  checkKey(tried([bytes] { return Minisign::publicKeyOfText(bytes); }));

  const auto signature = tried([bytes] { return Minisign::signatureOfFile(bytes); });
  if (!signature) return 0;
  fuzz::require(signature->trustedComment.find('\n') == std::string::npos, "a comment is one line");
  if (Minisign::faultOf(*signature, Minisign::publicKeyOfText(key), message)) return 0;
  fuzz::require(signature->trustedComment.starts_with("timestamp:1795306782\tfile:m"), "a signature cannot be forged");
  return 0;
}
