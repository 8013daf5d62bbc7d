"""What each operation of the hardware daemon's client should do, as data."""

from tests.integration.client_cases import CALL, OPEN, READ, Case
from tests.integration.client_driver import error, info

SERVICE = "com.tavilon.common.Halvex1"
PATH = "/com/tavilon/common/Halvex1"
CONTROL = (PATH, f"{SERVICE}.Control")
CAMERA = (f"{PATH}/camera", f"{SERVICE}.camera")
COOLING = (f"{PATH}/cooling", f"{SERVICE}.cooling")
POWER = (f"{PATH}/power", f"{SERVICE}.power")
REEL = (f"{PATH}/reel", f"{SERVICE}.reel")
DISTANCE = (f"{PATH}/reel/distance", f"{SERVICE}.reel")

#: Which hardware is meant is asked before every property access.
QUESTIONS = [(*CONTROL, "Get RemoteIP", ()), (*CONTROL, "Get RemoteDBusAddress", ())]
NO_BUS_LINE = error("r != OPENED_LOCAL_BUS && r != OPENED_REMOTE_BUS")

TEXT = "text \u00fc %s %n"
UNTOUCHED = {"b": True, "s": "untouched"}


def untouched(*kinds):
    """Out-arguments after a failure."""
    return [UNTOUCHED.get(kind, 77) for kind in kinds]


# Methods --------------------------------------------------------------------------------------------------------------

def answering(member, answer):
    """Has the simulation answer a member so, and do nothing else."""
    return lambda unit: setattr(unit.hardware, f"on_{member}", lambda _path, *_arguments: answer)


def one_line(line):
    """One line for whatever fails, filled with the result and the bus's words."""
    return lambda step, result, text: [error(line.format(result, text))]


def step_lines(**lines):
    """A line for each step; a step without one is silent, and a failed open counts as a failed call."""

    def failed(step, result, _text):
        line = lines.get(step, lines.get(CALL) if step == OPEN else None)
        return [error(line.format(result))] if line else []

    return failed


def method(target, member, types="", inputs=(), answer=None, **others):
    """The case of a method; the operation has the member's name unless another is given."""
    operation = others.pop("operation", member)
    outs = [] if answer is None else list(answer) if isinstance(answer, tuple) else [answer]
    given = {"outs": outs, "prepare": answering(member, answer), **others}
    return Case(f"hardware.{operation}", (*target, member, inputs), types, inputs, **given)


METHODS = [
    method(CONTROL, "SetRemote", "ss", ("192.0.2.7", "unix:path=/run/bus"), blind=True,
           failed=one_line("Failed to set remote credentials for HalvexDaemon: {}, {}")),
    method(CONTROL, "SetLocal", blind=True,
           failed=one_line("Failed to clear remote credentials for HalvexDaemon: {}, {}")),
    method(CONTROL, "GetVideoStatus", answer=-3, untouched=[77]),
    method(CONTROL, "SetLedState", "uu", (3, 4294967295), blind=True,
           failed=one_line("sd_bus_call_method SetLedState failed (r = {})")),
    method(CONTROL, "BeepBuzzer", "uuu", (100, 4294967295, 3), True, outs=[],
           failed=step_lines(read="sd_bus_call_method SetLedState failed (r = {})")),
    method(CONTROL, "SetPowerState", "ii", (2, -1), True, outs=[],
           failed=step_lines(read="SetPowerState: sd_bus_message_read failed (r = {})")),
    method(CONTROL, "GetPowerStates", answer=(False, True, False, False, True), untouched=[True] * 5),
    method(POWER, "GetBatteryUpdateState", answer=5, untouched=[77],
           failed=step_lines(call="sd_bus_call_method GetBatteryUpdate failed (r = {})",
                             read="sd_bus_message_read failed (r = {})")),
    method(POWER, "GetBatteryUpdateDirection", answer=-6, untouched=[77],
           failed=step_lines(call="sd_bus_call_method GetBatteryUpdateDirection failed (r = {})",
                             read="sd_bus_message_read failed (r = {})")),
    method(POWER, "GetPowerSufficientForAction", "i", (-7,), 1, untouched=[77],
           failed=step_lines(open="GetPowerSufficientForAction: sd_bus_open_user failed r = {}\n",
                             call="GetPowerSufficientForAction: sd_bus_call_method failed (r = {})",
                             read="GetPowerSufficientForAction: sd_bus_message_read failed (r = {})")),
    method(POWER, "RequestBatteryData", answer=False, untouched=[True],
           failed=step_lines(open="RequestGetBatteryData: sd_bus_open_user failed r = {}",
                             call="RequestGetBatteryData: sd_bus_call_method failed (r = {})",
                             read="RequestGetBatteryData: sd_bus_message_read failed (r = {})")),
    method(REEL, "overlay", "i", (-8,), operation="SetAnalogReelDisplay", blind=True,
           failed=one_line("Failed to set analog reel display: {}, {}")),
]

# Battery information --------------------------------------------------------------------------------------------------

BATTERY_FIELDS = ["update_state", "update_direction", "power_source", "orvel_type", "serial_num", "manu_date",
                  "bat_capacity", "bat_chrg_dischrg_cycle", "bat_vs", "bat_hw", "bat_self_soft_vs", "bat_itf_soft_vs",
                  "bat_charger_soft_vs"]
RIGHT = (1, 2, 3, 65535, "SN %s", "2021-03-04", 4294967295, 8, 9, 10, 11, 12, 13)
LEFT = (21, 22, 23, 24, "", "2022-05-06", 27, 28, 29, 30, 31, 32, 65534)
BATTERY_TEXT = "libdbus-helper - HalvexDaemonDbusHandler::GetBatteryInfo"
BATTERY_READING = info(f"{BATTERY_TEXT} reading returned message.\n")
BATTERY_READ = [BATTERY_READING, info(f"{BATTERY_TEXT} message parsed successfully.\n")]
BATTERY_VALUES = BATTERY_READ + [
    info(f"{BATTERY_TEXT} GetBatteryInfo method returned sucessful info collection.\n")] + [
    info(f"bI.battery_info[{side}_BATT_INDEX].{name} {value}.\n")
    for side, battery in (("RIGHT", RIGHT), ("LEFT", LEFT)) for name, value in zip(BATTERY_FIELDS, battery)]
BATTERY_REFUSAL = BATTERY_READ + [error(f"{BATTERY_TEXT} GetBatteryInfo method reported battery info read failure")]


def _battery_failed(step, result, text):
    if step == READ:
        return [BATTERY_READING, error(f"{BATTERY_TEXT} sd_bus_message_read failed (r = {result})")]
    return [error(f"{BATTERY_TEXT} sd_bus_call_method GetBatInfo failed (r = {result}), {text}\n")]


BATTERY_INFO = method(POWER, "GetBatteryInfo", outs=[[True, *RIGHT, *LEFT]],
                      untouched=[untouched(*"bqqqqssuuqqqqqqqqqssuuqqqqq")], failed=_battery_failed,
                      traffic=[info(f"{BATTERY_TEXT} start\n"),
                               info(f"{BATTERY_TEXT} calling GetBatteryInfo dbus method.\n")],
                      prepare=answering("GetBatteryInfo", (True, *RIGHT, *LEFT)))

# Properties -----------------------------------------------------------------------------------------------------------

#: Object, property, type, getter, setter, constant after "HALVEX_DAEMON_PROP_", C++ type if it is the client's.
PROPERTY_TABLE = [
    (CONTROL, "VideoStatus", "i", "GetPropVideoStatus", None, "VIDEO_STATUS", None),
    (CONTROL, "GetHalvexSwVersion", "s", "GetHalvexSwVersion", None, "HALVEX_SW_VERSION", None),
    (CONTROL, "GetHalvexHwVersion", "s", "GetHalvexHwVersion", None, "HALVEX_HW_VERSION", None),
    (CONTROL, "GetKeypadPicVersion", "s", "GetKeypadPicVersion", None, "KEYPAD_PIC_VERSION", None),
    (CAMERA, "Brightness", "i", "GetCameraLedBrightness", "SetCameraLedBrightness", "CAMERA_LED_BRIGHTNESS", None),
    (CAMERA, "Sonde", "b", "GetCameraSonde", "SetCameraSonde", "CAMERA_SONDE", None),
    (CAMERA, "Atex", "b", "GetCameraAtex", "SetCameraAtex", "CAMERA_ATEX", None),
    (COOLING, "CpuTemp", "n", "GetCPUtempC", None, "COOLING_CPU_TEMP", None),
    (COOLING, "FanSpeed", "y", "GetFanSpeed", None, "COOLING_FAN_SPEED", None),
    (COOLING, "FanCtrlMode", "s", "GetFanCtrlMode", "SetFanCtrlMode", "COOLING_FAN_CTRL_MODE", None),
    (COOLING, "ManualFanSpeed", "y", "GetManualFanSpeed", "SetManualFanSpeed", "COOLING_MANUAL_FAN_SPEED", None),
    (COOLING, "FanCtrlRangeMinTemp", "n", "GetFanCtrlRangeMinTempC", "SetFanCtrlRangeMinTempC",
     "COOLING_FAN_CTRL_RANGE_MIN_TEMP", None),
    (COOLING, "FanCtrlRangeMaxTemp", "n", "GetFanCtrlRangeMaxTempC", "SetFanCtrlRangeMaxTempC",
     "COOLING_FAN_CTRL_RANGE_MAX_TEMP", None),
    (COOLING, "CpuTempAvgPeriod", "y", "GetCPUtempAveragingPeriod", "SetCPUtempAveragingPeriod",
     "COOLING_CPU_TEMP_AVG_PERIOD", None),
    (COOLING, "EmitStatusChanges", "b", "GetEmitStatusChanges", "SetEmitStatusChanges", "COOLING_EMIT_STATUS_CHANGES",
     None),
    (POWER, "ActivePowerSource", "i", "GetPowerSource", None, "POWER_ACTIVE_POWER_SOURCE",
     "Halvexd::ActivePowerSource"),
    (POWER, "BatteryVoltages", "(ii)", "ReadBatteryVoltages", None, "POWER_BATTERY_VOLTAGES", None),
    (POWER, "BatteryChargePercentages", "(ii)", "ReadBatteryChargePercentages", None,
     "POWER_BATTERY_CHARGE_PERCENTAGES", None),
    (POWER, "SystemPowerLevel", "i", "GetSystemPowerLevel", None, "POWER_SYSTEM_POWER_LEVEL",
     "Halvexd::SystemPowerLevel"),
    (POWER, "BatteryDrainMode", "i", "GetBatteryDrainMode", "SetBatteryDrainMode", "POWER_BATTERY_DRAIN_MODE",
     "Halvexd::BatteryDrainMode"),
    (POWER, "BatteryTypes", "(ii)", "GetBatteryTypes", None, "POWER_BATTERY_TYPES", "Halvexd::OrvelType"),
    (POWER, "LowBatteryWarnings", "(bb)", "GetLowBatteryWarnings", None, "POWER_LOW_BATTERY_WARNINGS", None),
    (POWER, "PermittedActions", "(bbbbb)", "GetPermittedActions", None, "POWER_PERMITTED_ACTIONS",
     "Halvexd::permittedActions_t"),
    (REEL, "Status", "i", "GetReelStatus", None, "REEL_STATUS", None),
    (REEL, "Connected", "b", "GetReelConnected", None, "REEL_CONNECTED", None),
    (REEL, "SerialNumber", "s", "GetReelSerialNumber", "SetReelSerialNumber", "REEL_SERIAL_NUMBER", None),
    (DISTANCE, "CountMode", "i", "GetReelCountMode", "SetReelCountMode", "REEL_COUNT_MODE", "Halvexd::CountMode"),
    (DISTANCE, "Count", "i", "GetReelCount", None, "REEL_COUNT", None),
    (DISTANCE, "Mode", "s", "GetReelDistanceSoftwareMode", "SetReelDistanceSoftwareMode", "REEL_DIST_MODE", None),
    (DISTANCE, "Absolute", "i", "GetReelDistanceAbsolute", "SetReelDistanceAbsolute", "REEL_DIST_ABS", None),
    (DISTANCE, "Relative", "i", "GetReelDistanceRelative", None, "REEL_DIST_REL", None),
]

#: C++ types and values of the D-Bus types.
SPELLING = {"b": "bool", "y": "uint8_t", "n": "int16_t", "i": "int32_t", "s": "std::string", "(ii)": "int32_t",
            "(bb)": "bool"}
VALUES = {"b": (False, True), "y": (255,), "n": (-32768, 32767), "i": (-2147483648, 2147483647, 0),
          "s": (TEXT, ""), "(ii)": ((-12, 34),), "(bb)": ((False, True), (True, False)),
          "(bbbbb)": ((True, False, False, True, False),)}


def access_line(verb, operation, parameters, constant, text):
    """The line of a property access that failed."""
    return error(f"static int32_t Halvexd::HalvexDaemonDbusHandler::{operation}({parameters}): "
                 f"sdbus_utils::{verb}Property HALVEX_DAEMON_PROP_{constant} failed {text}")


def access_failed(verb, operation, parameters, constant):
    """The same as a case wants it."""
    return lambda _step, _result, text: [access_line(verb, operation, parameters, constant, text)]


def storing(target, name, value):
    """Has the property hold the value."""
    return lambda unit: unit.hardware.set_property(target[0], name, value, emit=False)


def opened(operation, bus="local"):
    """The line of the bus that was chosen."""
    return info(f"Opened {bus} bus for {operation}")


def getter(row, value):
    """The case of a property that is read. What both batteries have comes in two out-arguments."""
    target, name, kind, operation, _, constant, spelling = row
    pair = kind in ("(ii)", "(bb)")
    parameters = ", ".join([f"{spelling or SPELLING[kind]}&"] * (2 if pair else 1))
    none = untouched(*kind.strip("()"))
    return Case(f"hardware.{operation}", (*target, f"Get {name}", ()), kind, traffic=[opened(operation)],
                outs=list(value) if pair else [list(value) if isinstance(value, tuple) else value],
                untouched=none if pair or len(kind) == 1 else [none],
                failed=access_failed("Get", operation, parameters, constant), prepare=storing(target, name, value))


def setter(row, value):
    """The case of a property that is written."""
    target, name, kind, _, operation, constant, spelling = row
    parameters = "const std::string&" if kind == "s" else spelling or SPELLING[kind]
    return Case(f"hardware.{operation}", (*target, f"Set {name}", (value,)), kind, (value,), blind=True,
                traffic=[opened(operation)], failed=access_failed("Set", operation, parameters, constant))


ZERO_COUNT = Case("hardware.ZeroReelCount", (*DISTANCE, "Set Count", (0,)), "i", blind=True,
                  traffic=[opened("ZeroReelCount")], failed=access_failed("Set", "ZeroReelCount", "", "REEL_COUNT"))
#: Properties of the hardware that is chosen.
CHOSEN = ([getter(row, value) for row in PROPERTY_TABLE for value in VALUES[row[2]]]
          + [setter(row, value) for row in PROPERTY_TABLE if row[4] for value in VALUES[row[2]]] + [ZERO_COUNT])
ALL_REEL = Case("hardware.GetAllReelProperties", (*REEL, "GetAll", ()), "",
                outs=[{"Connected": ["b", True], "SerialNumber": ["s", "R %s"], "Status": ["i", -4]}],
                untouched=[{"untouched": ["untouched", True]}], traffic=[opened("GetAllReelProperties")],
                prepare=lambda unit: unit.hardware.set_properties(
                    REEL[0], {"Connected": True, "SerialNumber": "R %s", "Status": -4}, emit=False))


def question(name, operation, constant):
    """The case of a property that says which hardware is meant: always asked of the local daemon."""
    return Case(f"hardware.{operation}", (*CONTROL, f"Get {name}", ()), "s", outs=[TEXT], untouched=["untouched"],
                failed=access_failed("Get", operation, "std::string&", constant), prepare=storing(CONTROL, name, TEXT))


QUESTION_CASES = [question("RemoteIP", "GetRemoteIP", "REMOTE_IP"),
                  question("RemoteDBusAddress", "GetRemoteDbusAddr", "REMOTE_DBUS_ADDR")]


def question_lines(text):
    """The lines of questions that were not answered."""
    return [line for case in QUESTION_CASES for line in case.failed(CALL, 0, text)]


# Icons ----------------------------------------------------------------------------------------------------------------

_NAMES = "std::vector<std::__cxx11::basic_string<char> >&"
_icons_refused = access_failed("Get", "GetBatteryLevelIcons", f"std::string&, {_NAMES}, {_NAMES}",
                               "POWER_BATTERY_LEVEL_ICONS")


def _icons_failed(step, result, text):
    if step == OPEN:
        return [error(f"sd_bus_open_user returned {result}\n")]
    return _icons_refused(step, result, text)


ICONS = Case("hardware.GetBatteryLevelIcons", (*POWER, "Get BatteryLevelIcons", ()), "(sassas)",
             outs=[TEXT, ["right %d", ""], ["left"]], untouched=["untouched", ["untouched"], ["untouched"]],
             failed=_icons_failed,
             prepare=storing(POWER, "BatteryLevelIcons", (TEXT, ["right %d", ""], "second text", ["left"])))

#: Operations that go to the local daemon without a question.
DIRECT = METHODS + [BATTERY_INFO, ICONS] + QUESTION_CASES
