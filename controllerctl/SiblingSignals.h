#pragma once

#include "controllerctl/Siblings.h"
#include "dbus_helper/Handles.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ControllerCtl
{

/// Listens to all siblings and to the controller on one connection: to their signals, and to their coming and going.
class SiblingSignals
{
  public:
    /// Who has said it, by the name that this program has for it ("controller" for that), and what: a signal, or the
    /// bus's own NameOwnerChanged of its name. True when it is worth an end of the waiting.
    using Hearer = std::function<bool(const char* who, sd_bus_message* signal)>;

    SiblingSignals(sd_bus* bus, Hearer hear);
    ~SiblingSignals() = default;
    SiblingSignals(const SiblingSignals&) = delete;
    SiblingSignals& operator=(const SiblingSignals&) = delete;
    SiblingSignals(SiblingSignals&&) = delete;
    SiblingSignals& operator=(SiblingSignals&&) = delete;

    /// Has the bus pass on what is said from now on. Negative errno-style when it is gone.
    [[nodiscard]] int Listen();

    /// Waits until something is said that is worth it, and a moment longer for what comes with it. 1 then, 0 when the
    /// time has passed (never with -1 milliseconds) or a signal of the system has come; negative errno-style when the
    /// bus is gone.
    [[nodiscard]] int Wait(int milliseconds);

    /// Forgets that something was said.
    void Take() { hasHeard_ = false; }

  private:
    struct Source
    {
        SiblingSignals* signals;
        Sibling sibling;
        std::vector<DbusHelper::SlotHandle> slots;
    };

    static int OnSignal(sd_bus_message* signal, void* userData, sd_bus_error* error);
    static int OnOwner(sd_bus_message* signal, void* userData, sd_bus_error* error);
    void Hear(const Source& source, sd_bus_message* signal);
    [[nodiscard]] int ListenTo(Source& source);
    [[nodiscard]] int Process(int milliseconds);

    sd_bus* bus_;
    Hearer hear_;
    bool hasHeard_ = false;
    std::vector<std::unique_ptr<Source>> sources_; // their addresses are sd-bus's
};

} // namespace ControllerCtl
