#include "foundation/tkArchiveState.h"

#include "foundation/tkUtf8.h"

namespace
{
/// So much of a type's name goes into a message.
constexpr std::size_t shownTypeName = 200;
} // namespace

std::uint32_t tkArchive::State_::add(tkPersistent* object, tkPtrHandle<tkRepBase> kept, bool isLoading)
{
    const bool isKept = !kept.isNull();
    const Word number = static_cast<Word>(objects.size() + 1);
    objects.push_back({object, std::move(kept), 0});
    if (!isKept || !isLoading)
        numbers.insert(object, number);
    if (!isKept)
        notKept.push_back(number);
    return number;
}

bool tkArchive::State_::haveVisited(const tkPersistent* object)
{
    for (; consulted < objects.size(); ++consulted)
        visited.insert(objects[consulted].object);
    return visited.count(object) != 0;
}

void tkArchive::State_::forget(tkPersistent* object)
{
    visited.erase(object);
    if (unclaimed == object)
        unclaimed = nullptr;
    const Word number = numbers.find(object);
    if (number != nullNumber)
    {
        objects[number - 1].object = nullptr;
        numbers.erase(object);
    }
}

void tkArchive::State_::forgetExchange()
{
    visitedLevels.clear();
    visited.clear();
    for (const Word number : notKept)
        if (tkPersistent* const object = std::exchange(objects[number - 1].object, nullptr))
            numbers.erase(object);
    notKept.clear();
}

std::wstring tkArchive::State_::shown(const std::string& typeName)
{
    return tkUtf8::readable(typeName.substr(0, shownTypeName));
}

tkArchive::Exchange_::Exchange_(tkArchive& archive) : state_(*archive.state_), enclosing_(innermost_)
{
    state_.stream.requireNotFailed();
    innermost_ = this;
    if (state_.exchanges++ == 0)
    {
        state_.firstObject = state_.consulted = state_.objects.size();
        state_.stream.startBuffering();
    }
}

void tkArchive::Exchange_::finish()
{
    if (state_.exchanges == 1)
        state_.stream.flush();
    finished_ = true;
}

tkArchive::Exchange_::~Exchange_()
{
    innermost_ = enclosing_;
    if (!finished_)
    {
        state_.stream.abandon(); // the stream still gets what was stored before the failure, as far as it takes it
        state_.stream.setFailed();
    }
    if (--state_.exchanges == 0)
        state_.forgetExchange();
}
