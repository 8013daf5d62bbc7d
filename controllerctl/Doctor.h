#pragma once

#include "controllerctl/Answer.h"
#include "controllerctl/Siblings.h"
#include "dbus_helper/Handles.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace ControllerCtl
{

enum class Verdict : unsigned char
{
    Ok,
    Missing,
    Wrong,
};

/// One thing that was looked at.
struct Finding
{
    std::string check; ///< what was looked at; the same words in every version
    Verdict verdict = Verdict::Ok;
    std::string found;        ///< what there is
    std::string meaning = {}; ///< what that is to a user; empty when all is well
    std::string remedy = {};  ///< what to do about it
};

using Findings = std::vector<Finding>;

/// What the looks at the unit share.
struct Patient
{
    sd_bus* bus = nullptr;                     ///< the user bus; null when it cannot be reached
    double seconds = 0;                        ///< that each group of questions has
    uid_t user = 0;                            ///< the unit's user: the controller's, or the caller where there is none
    std::vector<std::string> mountPoints = {}; ///< of the storage devices
    std::vector<std::string> recording = {};   ///< files that are being recorded
};

// Each adds its findings, changes nothing on the unit, and ends in the time that it is given, whoever hangs.

void ExamineBus(Patient& patient, Findings& findings);
void ExamineSiblings(const Patient& patient, Findings& findings);
void ExamineSettings(const Patient& patient, Findings& findings);
void ExamineStorage(Patient& patient, Findings& findings);
void ExamineSystem(const Patient& patient, Findings& findings);
void ExamineSound(const Patient& patient, Findings& findings);
void ExamineDevices(const Patient& patient, Findings& findings);
void ExamineFolders(const Patient& patient, Findings& findings);

} // namespace ControllerCtl
