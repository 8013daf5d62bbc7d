#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

namespace Bench
{

using Value =
    std::variant<bool, int32_t, uint32_t, std::string, std::vector<std::string>, int64_t, uint64_t, double,
                 std::tuple<int32_t, int32_t>, std::tuple<bool, bool>, std::tuple<bool, bool, bool, bool, bool>>;
using Properties = std::map<std::string, Value, std::less<>>;

struct Reply
{
    std::vector<Value> values;
    bool isStructure = false; ///< the values travel in one structure
};

/// What the responder answers in the place of the sibling daemons: a unit that is ready to record into a job on a
/// mounted card, with a camera that knows its angles and a reel in relative mode, so that a start asks for everything
/// it can ask for, and whose settings and clock agree; and what a look at the whole unit asks for. Unknown members are
/// left to sd-bus, which refuses them.
class CannedAnswers
{
  public:
    /// `media` is the job's folder, on the card.
    explicit CannedAnswers(const std::string& media);

    /// Answers the call when it is one that the siblings know. Positive when it did, 0 when not, negative errno-style
    /// on failure.
    int Answer(sd_bus_message* call) const;

    /// From now on there are so many storage devices, the first of which holds the media.
    void SetDevices(uint32_t devices) { devices_ = devices; }

  private:
    int AnswerGet(sd_bus_message* call) const;
    int AnswerManagedObjects(sd_bus_message* call) const;

    std::map<std::string, Properties, std::less<>> properties_; ///< by interface
    std::map<std::string, Reply, std::less<>> methods_;
    uint32_t devices_ = 1;
};

/// The storage device that holds the media.
inline constexpr const char* devicePath = "/com/tavilon/common/StorageDaemon1/device/card";
inline constexpr const char* deviceInterface = "com.tavilon.common.StorageDaemon1.Device";

} // namespace Bench
