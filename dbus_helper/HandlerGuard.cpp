#include "dbus_helper/HandlerGuard.h"

#include "dbus_helper/Log.h"

#include <any>
#include <exception>
#include <functional>
#include <new>

namespace DbusHelper
{
namespace
{

int Answer(const char* name, sd_bus_error* error, const char* errorName, const char* words)
{
    Log::Error("Exception while serving %s: %s", name, words);
    return sd_bus_error_set(error, errorName, words);
}

} // namespace

int AnswerException(const char* name, sd_bus_error* error) noexcept
{
    try
    {
        throw;
    }
    catch (const std::bad_any_cast&)
    {
        std::terminate();
    }
    catch (const std::bad_function_call&)
    {
        std::terminate();
    }
    catch (const std::bad_alloc&)
    {
        return Answer(name, error, SD_BUS_ERROR_NO_MEMORY, "Out of memory");
    }
    catch (const std::exception& exception)
    {
        return Answer(name, error, SD_BUS_ERROR_FAILED, exception.what());
    }
    catch (...)
    {
        return Answer(name, error, SD_BUS_ERROR_FAILED, "Unknown exception");
    }
}

} // namespace DbusHelper
