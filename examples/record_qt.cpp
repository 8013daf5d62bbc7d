// Records for a second from a Qt program, and tells how it went: record_qt [WIDTH HEIGHT]
#include "HeartBeat.h"

#include <controller_client/ControllerAsync.h>
#include <controller_client/ControllerCodes.h>
#include <controller_client/ControllerDaemonDbusHandler.h>
#include <controller_client/ControllerFailure.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdlib>
#include <iostream>
#include <string>

using Controller = Controllerd::ControllerDaemonDbusHandler;
using Controllerd::CaptureErrorCode;

struct Answer
{
    int result = 0;
    int code = 0;
    std::string message;
};

/// What the controller has said to an order; true when it was carried out.
static bool Tell(const char* order, const Answer& answer)
{
    if (answer.result < 0)
    {
        std::cout << order << ": " << Controllerd::ControllerFailure::Last().message << std::endl;
        return false;
    }
    std::cout << order << ": " << answer.message << std::endl;
    return answer.code == CaptureErrorCode::Success;
}

int main(int argc, char** argv)
{
    const int milliseconds = 5000; // that a person waits for an answer
    QCoreApplication application(argc, argv);
    const unsigned width = argc > 2 ? static_cast<unsigned>(std::atoi(argv[1])) : 1920;
    const unsigned height = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1080;

    Controllerd::ControllerAsync calls;
    QSocketNotifier over(calls.Descriptor(), QSocketNotifier::Read);
    QObject::connect(&over, &QSocketNotifier::activated, &application, [&] { calls.Dispatch(); });

    HeartBeat heart;
    QTimer beat;
    QObject::connect(&beat, &QTimer::timeout, &application, [&] { heart.Beat(); });
    beat.start(HeartBeat::periodMilliseconds);

    const auto stop = [&] {
        const int queued = calls.Start(
            [] {
                Answer answer;
                answer.result = Controller::StopRecording(answer.code, answer.message);
                return answer;
            },
            [&](const Answer& answer) { QCoreApplication::exit(Tell("stop", answer) ? 0 : 1); }, milliseconds);
        if (queued < 0)
        {
            QCoreApplication::exit(3);
        }
    };
    const int queued = calls.Start(
        [=] {
            Answer answer;
            answer.result = Controller::StartRecording(width, height, 90, answer.code, answer.message);
            return answer;
        },
        [&](const Answer& answer) {
            if (Tell("start", answer))
            {
                QTimer::singleShot(1000, &application, stop);
            }
            else
            {
                QCoreApplication::exit(1);
            }
        },
        milliseconds);
    return queued < 0 ? 3 : QCoreApplication::exec();
}
