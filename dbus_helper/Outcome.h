#pragma once

#include <cstdint>
#include <string>

namespace DbusHelper
{

/// The step of a bus operation at which it ended.
enum class Step : uint8_t
{
    Open,   ///< no connection could be opened
    Create, ///< the message could not be made, as for an object that has no valid path
    Write,  ///< the arguments could not be put into the message
    Call,   ///< the peer is missing, refused, or did not answer in time
    Read,   ///< the reply did not hold what was expected
    Done,
};

/// What became of a bus operation. The core that makes it logs nothing: each client turns it into its own lines.
struct Outcome
{
    Step step = Step::Done;
    int32_t result = 0;    ///< the last sd-bus result: negative errno-style on failure
    std::string errorText; ///< the bus's own words for a failure, empty on success

    [[nodiscard]] bool Ok() const { return result >= 0; }
};

/// The outcome of a step that failed: `message` where the bus gave one, else the text of the errno in `result`.
[[nodiscard]] Outcome Failure(Step step, int result, const char* message = nullptr);

} // namespace DbusHelper
