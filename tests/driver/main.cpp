// Runs operations on request, so that tests can hold each of them against simulated siblings. Takes one
// JSON object a line, {"operation": "video.PauseRecording", "in": []}, and answers each with one line,
// {"result": 0, "out": []}, or {"error": "..."} for a request that makes no sense. "list" answers with all
// operations, as an object from name to the D-Bus types of the inputs, and with the names of all listeners. After a
// listener's name, as in "listen.video", each signal is told in a line,
// {"signal": "VideoGrew", "arguments": [...]}, until the input ends.

#include "tests/driver/OperationTable.h"

#include <unistd.h>

#include <array>
#include <iostream>

namespace
{

using Driver::Json;
using Driver::Listening;
using Driver::OperationTable;

void Write(const Json& line) { std::cout << line.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl; }

Json Names(const OperationTable& table)
{
    Json operations = Json::object();
    Json listeners = Json::array();
    for (const auto& [name, operation] : table.Operations())
    {
        operations[name] = operation.inputs;
    }
    for (const auto& [name, listener] : table.Listeners())
    {
        listeners.push_back(name);
    }
    return {{"result", 0}, {"out", {operations, listeners}}};
}

int EndWithInput(sd_event_source* source, int descriptor, uint32_t /*events*/, void* /*userData*/)
{
    std::array<char, 256> ignored{};
    return read(descriptor, ignored.data(), ignored.size()) > 0 ? 0
                                                                : sd_event_exit(sd_event_source_get_event(source), 0);
}

/// The loop's exit status.
int Listen(const OperationTable::Listener& listener)
{
    sd_event* opened = nullptr;
    if (sd_event_new(&opened) < 0)
    {
        return EXIT_FAILURE;
    }
    const std::unique_ptr<sd_event, decltype(&sd_event_unref)> event(opened, &sd_event_unref);
    const Listening listening = listener(opened, [](const std::string& name, Json arguments) {
        Write({{"signal", name}, {"arguments", std::move(arguments)}});
    });
    sd_event_add_io(opened, nullptr, STDIN_FILENO, EPOLLIN, &EndWithInput, nullptr);
    Write({{"result", listening.result}, {"out", Json::array()}});
    return sd_event_loop(opened);
}

Json Answer(const OperationTable& table, const std::string& name, const Json& in)
{
    if (name == "list")
    {
        return Names(table);
    }
    const auto found = table.Operations().find(name);
    return found == table.Operations().end() ? Json{{"error", "unknown operation " + name}} : found->second.run(in);
}

int Serve(const OperationTable& table)
{
    std::string line;
    while (std::getline(std::cin, line))
    {
        try
        {
            const Json request = Json::parse(line);
            const std::string name = request.at("operation");
            const auto listener = table.Listeners().find(name);
            if (listener != table.Listeners().end())
            {
                return Listen(listener->second);
            }
            Write(Answer(table, name, request.value("in", Json::array())));
        }
        catch (const std::exception& error)
        {
            Write({{"error", error.what()}});
        }
    }
    return EXIT_SUCCESS;
}

} // namespace

int main()
{
    OperationTable table;
    AddOperations(table);
    return Serve(table);
}
