#include "clients/settings/SettingsDaemonDbusHandler.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/HandlerGuard.h"
#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gtest/gtest.h>
#include <sigc++/connection.h>

#include <cerrno>

namespace
{

using sdbus_utils::TypedPropertyMap;
using Settingsd::SettingsDaemonDbusHandler;
using Lines = std::vector<SyslogCapture::Line>;

constexpr const char* handlerText = "static int32_t Settingsd::SettingsDaemonDbusHandler::PropertiesChanged("
                                    "sd_bus_message*, void*, sd_bus_error*)";

void AddChange(TestMessage& message)
{
    message.Add(std::string("com.tavilon.common.Settings1"));
    message.AddDictionary([&] { message.AddEntry("enabled", true); });
}

class SettingsHandler : public testing::Test
{
  protected:
    SettingsHandler()
    {
        handler_.SectionChanged().connect(
            [this](const std::string& section, TypedPropertyMap&) { told_.push_back("all: " + section); });
        handler_.SectionChanged("sonde").connect([this](TypedPropertyMap&) { told_.emplace_back("sonde"); });
        SyslogCapture::Take();
    }

    int32_t Receive(TestMessage& message)
    {
        return SettingsDaemonDbusHandler::PropertiesChanged(message.Read(), &handler_, nullptr);
    }

    SettingsDaemonDbusHandler handler_{nullptr};
    std::vector<std::string> told_;
};

TEST_F(SettingsHandler, TellsAllThenTheSection)
{
    TestMessage message("/com/tavilon/common/Settings1/sonde");
    AddChange(message);
    EXPECT_EQ(Receive(message), 0);
    EXPECT_EQ(told_, (std::vector<std::string>{"all: sonde", "sonde"}));
    EXPECT_EQ(SyslogCapture::Take(), Lines{});
}

TEST_F(SettingsHandler, MessagesWithoutASection)
{
    TestMessage root("/");
    AddChange(root);
    EXPECT_EQ(Receive(root), -1);
    EXPECT_EQ(SyslogCapture::Take(), (Lines{{LOG_ERR, std::string(handlerText) + ": Mallformed path string"}}));

    TestMessage fromNowhere(nullptr);
    AddChange(fromNowhere);
    EXPECT_EQ(Receive(fromNowhere), -1);
    EXPECT_EQ(SyslogCapture::Take(), (Lines{{LOG_ERR, std::string(handlerText) + ": Failed to find / in path"}}));
    EXPECT_TRUE(told_.empty());
}

TEST_F(SettingsHandler, AFailureToReadIsMinusOne)
{
    TestMessage empty("/com/tavilon/common/Settings1/sonde");
    EXPECT_EQ(Receive(empty), -1);
    TestMessage noMap("/com/tavilon/common/Settings1/sonde");
    noMap.Add(std::string("com.tavilon.common.Settings1"));
    EXPECT_EQ(Receive(noMap), -1);
    EXPECT_EQ(SyslogCapture::Take(),
              (Lines{{LOG_ERR, std::string(handlerText) + ": Failed to skip interface string"},
                     {LOG_ERR, std::string(handlerText) + ": ParsePropertiesWithType failed:-6"}}));
    EXPECT_TRUE(told_.empty());
}

TEST_F(SettingsHandler, AValueTakenOutAsAnotherTypeEndsTheDaemon)
{
    handler_.SectionChanged("sonde").connect(
        [](TypedPropertyMap& changes) { (void)std::any_cast<uint32_t>(changes.at("enabled").second); });
    TestMessage message("/com/tavilon/common/Settings1/sonde");
    AddChange(message);
    sd_bus_message* read = message.Read();
    const auto receive = [&] { return SettingsDaemonDbusHandler::PropertiesChanged(read, &handler_, nullptr); };
    EXPECT_DEATH(DbusHelper::Guard("PropertiesChanged", nullptr, receive), "terminate called"); // as the listener does
}

TEST(SettingsHandlerLife, SubscribersAreLetGoAtItsEnd)
{
    auto handler = std::make_shared<SettingsDaemonDbusHandler>(nullptr);
    const auto copy = handler->SectionChanged("time");
    const sigc::connection all = handler->SectionChanged().connect([](const std::string&, TypedPropertyMap&) {});
    const sigc::connection section = handler->SectionChanged("time").connect([](TypedPropertyMap&) {});
    EXPECT_TRUE(all.connected() && section.connected());
    handler.reset();
    EXPECT_FALSE(all.connected());
    EXPECT_FALSE(section.connected());
    EXPECT_TRUE(copy.empty());
}

TEST(ClientsWithoutALoop, CannotListen)
{
    SyslogCapture::Take();
    EXPECT_EQ(SettingsDaemonDbusHandler(nullptr).Listen(), -EINVAL);
    EXPECT_EQ(SyslogCapture::Take(),
              (Lines{{LOG_ERR, "int32_t Settingsd::SettingsDaemonDbusHandler::Listen(): Failed to connect to dbus"}}));
    EXPECT_EQ(Storaged::StorageDaemonDbusHandler(nullptr).ListenSignals({"PropertiesChanged"}), -EINVAL);
    EXPECT_EQ(Videod::VideoDaemonDbusHandler(nullptr).ListenSignals({"VideoGrew"}), -EINVAL);
    EXPECT_EQ(SyslogCapture::Take(), Lines{});
}

} // namespace
