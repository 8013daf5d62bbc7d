// Records, and follows the time zone, with sdbus-c++: follow_sdbus [ZONE]
#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <set>
#include <string>

int main(int argc, char** argv)
{
    const std::string service = "com.tavilon.common.Controller1";
    const std::string path = "/com/tavilon/common/Controller1";
    const std::string control = service + ".Control";
    const auto patience = std::chrono::seconds(120);

    auto bus = sdbus::createSessionBusConnection();
    auto proxy = sdbus::createProxy(*bus, service, path);
    std::set<std::string> awaited{"TimezoneChanged", "TimeChanged"};
    // By path and interface, without a sender: the proxy's own uponSignal never tells of the two.
    const auto match =
        bus->addMatch("type='signal',path='" + path + "',interface='" + control + "'", [&](sdbus::Message& message) {
            if (awaited.erase(message.getMemberName()) > 0)
            {
                std::cout << message.getMemberName() << std::endl;
            }
            if (awaited.empty())
            {
                bus->leaveEventLoop();
            }
        });

    const std::string zone = proxy->getProperty("GetTimezone").onInterface(control);
    std::cout << "zone: " << zone << std::endl;
    std::int32_t code = 0;
    std::string message;
    proxy->callMethod("VideoRecordStart")
        .onInterface(control)
        .withTimeout(patience)
        .withArguments(std::uint32_t{1920}, std::uint32_t{1080}, std::uint32_t{90})
        .storeResultsTo(code, message);
    std::cout << "start: " << message << std::endl;
    if (code == 0)
    {
        proxy->callMethod("VideoRecordStop").onInterface(control).withTimeout(patience).storeResultsTo(code, message);
        std::cout << "stop: " << message << std::endl;
    }

    proxy->callMethod("SetTimezone")
        .onInterface(control)
        .withTimeout(patience)
        .withArguments(argc > 1 ? std::string(argv[1]) : zone);
    bus->enterEventLoop();
    // Asked for again, as each property of these proxies is: keep none, no PropertiesChanged tells of it.
    const std::string fresh = proxy->getProperty("GetTimezone").onInterface(control);
    std::cout << "zone: " << fresh << std::endl;
    return 0;
}
