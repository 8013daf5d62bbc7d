#pragma once

#include "dbus_helper/Codec.h"
#include "dbus_helper/Handles.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <functional>
#include <string>

/// A message that is written, sealed and read back on the spot, over no bus at all.
class TestMessage
{
  public:
    /// A signal from the object at `path`; without one a reply, which comes from no object.
    explicit TestMessage(const char* path = "/test/object");
    ~TestMessage();
    TestMessage(const TestMessage&) = delete;
    TestMessage& operator=(const TestMessage&) = delete;
    TestMessage(TestMessage&&) = delete;
    TestMessage& operator=(TestMessage&&) = delete;

    /// Appends values, each as the D-Bus type of its own.
    template <typename... Types>
    TestMessage& Add(const Types&... values)
    {
        EXPECT_GE(DbusHelper::Sequence<Types...>::Append(message_.get(), std::tuple<const Types&...>(values...)), 0);
        return *this;
    }

    /// Appends what `contents` writes, inside a container ("a", "r", "e" or "v" of these contents).
    TestMessage& AddContainer(char type, const std::string& signature, const std::function<void()>& contents);

    /// Appends one entry of an "a{sv}".
    template <typename T>
    TestMessage& AddEntry(const std::string& key, const T& value)
    {
        return AddEntry(key, DbusHelper::Codec<T>::signature.c_str(), [&] { Add(value); });
    }
    TestMessage& AddEntry(const std::string& key, const std::string& signature, const std::function<void()>& contents);

    /// Appends a whole "a{sv}".
    TestMessage& AddDictionary(const std::function<void()>& entries);

    /// Ends the writing, and starts the reading from the beginning again each time.
    sd_bus_message* Read();

    [[nodiscard]] sd_bus_message* Get() { return message_.get(); }
    /// The type of what has been written.
    [[nodiscard]] std::string Signature() { return sd_bus_message_get_signature(message_.get(), 1); }

  private:
    int peer_ = -1;
    DbusHelper::BusHandle bus_;
    DbusHelper::MessageHandle message_;
    bool sealed_ = false;
};
