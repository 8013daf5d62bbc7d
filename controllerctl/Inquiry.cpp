#include "controllerctl/Inquiry.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace ControllerCtl
{
namespace
{

using DbusHelper::MessageHandle;

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

Heard KindOf(const sd_bus_error* error)
{
    switch (sd_bus_error_get_errno(error))
    {
    case EHOSTUNREACH: // ServiceUnknown
        return Heard::Absent;
    case ETIMEDOUT:
    case ECONNRESET:
        return Heard::Nothing;
    default:
        return sd_bus_error_has_name(error, "org.freedesktop.DBus.Error.NameHasNoOwner") > 0 ? Heard::Absent
                                                                                             : Heard::Refusal;
    }
}

} // namespace

int OpenForLooks(LookBus& bus, int (*open)(DbusHelper::BusHandle& bus))
{
    DbusHelper::BusHandle opened;
    const int result = open(opened);
    bus.reset(opened.release());
    return result;
}

void Inquiry::GetAs(const DbusHelper::Endpoint& endpoint, const char* property, const char* signature, Hearing& hearing,
                    Reader read)
{
    const Writer write = [&](sd_bus_message* call) {
        return sd_bus_message_append(call, "ss", endpoint.interface, property);
    };
    const DbusHelper::Endpoint properties{endpoint.service, endpoint.path, propertiesInterface};
    CallAs(properties, "Get", write, hearing, [signature, read = std::move(read)](sd_bus_message* answer) {
        const int result = sd_bus_message_enter_container(answer, 'v', signature);
        return result <= 0 ? -ENXIO : read(answer);
    });
}

void Inquiry::CallAs(const DbusHelper::Endpoint& endpoint, const char* member, const Writer& write, Hearing& hearing,
                     Reader read)
{
    sd_bus_message* raw = nullptr;
    int result =
        sd_bus_message_new_method_call(bus_, &raw, endpoint.service, endpoint.path, endpoint.interface, member);
    const MessageHandle call(raw);
    result = result < 0 ? result : write(raw);
    if (result < 0)
    {
        hearing = {Heard::Refusal, std::strerror(-result)};
        return;
    }
    Ask(raw, hearing, std::move(read));
}

void Inquiry::Ask(sd_bus_message* call, Hearing& hearing, Reader read)
{
    hearing = {Heard::Nothing, std::strerror(ETIMEDOUT)};
    auto question = std::make_unique<Question>(Question{this, &hearing, std::move(read), nullptr});
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_call_async(bus_, &slot, call, &OnAnswer, question.get(), UINT64_MAX);
    if (result < 0)
    {
        hearing = {Heard::Absent, std::strerror(-result)};
        return;
    }
    question->slot.reset(slot);
    questions_.push_back(std::move(question));
    ++open_;
}

int Inquiry::OnAnswer(sd_bus_message* answer, void* userData, sd_bus_error* /*error*/)
{
    const Question& question = *static_cast<Question*>(userData);
    --question.inquiry->open_;
    if (sd_bus_message_is_method_error(answer, nullptr) > 0)
    {
        const sd_bus_error* error = sd_bus_message_get_error(answer);
        *question.hearing = {KindOf(error), error->message != nullptr ? error->message : error->name};
        return 0;
    }
    const int result = question.read(answer);
    *question.hearing = result < 0 ? Hearing{Heard::Unreadable, std::strerror(-result)} : Hearing{Heard::Well, ""};
    return 0;
}

int Inquiry::Wait(const Patience& patience)
{
    int result = 0;
    while (open_ > 0 && result >= 0)
    {
        result = sd_bus_process(bus_, nullptr);
        if (result != 0)
        {
            continue;
        }
        const int left = patience.Left();
        if (left == 0)
        {
            break;
        }
        constexpr uint64_t microseconds = 1000;
        result = sd_bus_wait(bus_, left < 0 ? UINT64_MAX : static_cast<uint64_t>(left) * microseconds);
        result = result == -EINTR ? 0 : result;
    }
    questions_.clear();
    open_ = 0;
    return result < 0 ? result : 0;
}

} // namespace ControllerCtl
