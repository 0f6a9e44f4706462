#include "apps/corvane/Sync/Words.h"

#include <algorithm>
#include <iterator>

namespace CorvaneCli {
namespace {

using Action = Corvane::ZTreeDownload::Action;
using Reason = Corvane::ZTreeDownload::Reason;

template <class Key, class Words>
struct Entry {
  Key key;
  Words words;
};

constexpr Entry<Action, ActionWords> kActions[] = {
    {Action::Keep, {"keep", "kept", "keep"}},
    {Action::Fetch, {"fetch", "fetched", "fetch"}},
    {Action::Continue, {"continue", "continued", "continue"}},
    {Action::Delete, {"delete", "deleted", "delete"}},
    {Action::LeaveOut, {"leave out", "left out", "leaveOut"}},
    {Action::Refuse, {"refuse", "refused", "refuse"}},
};

constexpr Entry<Reason, ReasonWords> kReasons[] = {
    {Reason::None, {"", ""}},
    {Reason::Missing, {"not here", "missing"}},
    {Reason::SizeDiffers, {"another size than on the server", "sizeDiffers"}},
    {Reason::TimeDiffers, {"another time than on the server", "timeDiffers"}},
    {Reason::NotComparable, {"the server tells too little to compare", "notComparable"}},
    {Reason::SameAsListed, {"size and time as listed", "sameAsListed"}},
    {Reason::SameAsAnswered, {"size and time as the server answers", "sameAsAnswered"}},
    {Reason::NotModified, {"not modified, as the server answers", "notModified"}},
    {Reason::NotListed, {"not on the server", "notListed"}},
    {Reason::NotPlain, {"no file or folder with a plain name", "notPlain"}},
    {Reason::InTheWay, {"something else is in its place here", "inTheWay"}},
};

// One that a later library adds shows as no reason, and as an action that is done.
template <class Key, class Words, std::size_t kCount>
const Words& Find(const Entry<Key, Words> (&table)[kCount], Key key, const Words& other) noexcept {
  const auto* const found =
      std::find_if(std::begin(table), std::end(table), [key](const auto& entry) { return entry.key == key; });
  return found == std::end(table) ? other : found->words;
}

}  // namespace

const ActionWords& WordsFor(Action action) noexcept {
  static constexpr ActionWords kOther{"do", "done", "other"};
  return Find(kActions, action, kOther);
}

const ReasonWords& WordsFor(Reason reason) noexcept { return Find(kReasons, reason, kReasons[0].words); }

}  // namespace CorvaneCli
