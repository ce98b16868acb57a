#pragma once

// Every name of a table or column of the configuration store that the daemon knows.
namespace orv::horad::dbm {

inline constexpr char Id[] = "Id";

// The generic time plan tables, whose names the command line gives, and the WLAN's.
inline constexpr char TimePlan_Name[] = "TimePlanName";
inline constexpr char TimePlan_Status[] = "TimePlanStatus";
inline constexpr char TimePlan_Activate[] = "Activate";
inline constexpr char TimePlan_StartMon[] = "StartMon";
inline constexpr char TimePlan_StopMon[] = "StopMon";
inline constexpr char TimePlan_StartTue[] = "StartTue";
inline constexpr char TimePlan_StopTue[] = "StopTue";
inline constexpr char TimePlan_StartWed[] = "StartWed";
inline constexpr char TimePlan_StopWed[] = "StopWed";
inline constexpr char TimePlan_StartThu[] = "StartThu";
inline constexpr char TimePlan_StopThu[] = "StopThu";
inline constexpr char TimePlan_StartFri[] = "StartFri";
inline constexpr char TimePlan_StopFri[] = "StopFri";
inline constexpr char TimePlan_StartSat[] = "StartSat";
inline constexpr char TimePlan_StopSat[] = "StopSat";
inline constexpr char TimePlan_StartSun[] = "StartSun";
inline constexpr char TimePlan_StopSun[] = "StopSun";

inline constexpr char WlanTimePlans[] = "WlanTimePlans";

inline constexpr char WlanGlobals[] = "WlanGlobals";
inline constexpr char WlanGlobals_WlanEnable[] = "WlanEnable";
inline constexpr char WlanGlobals_AlwaysEnable[] = "AlwaysEnable";

inline constexpr char TimeFrame[] = "TimeFrame";
inline constexpr char TimeFrame_WindowMode[] = "WindowMode";
inline constexpr char TimeFrame_Servicetable[] = "Servicetable";
inline constexpr char TimeFrame_ServicetableId[] = "ServicetableId";
inline constexpr char TimeFrame_Start[] = "TimeFrameStart";
inline constexpr char TimeFrame_End[] = "TimeFrameEnd";
inline constexpr char TimeFrame_UserMessage[] = "UserMessage";
inline constexpr char TimeFrame_MaxRetries[] = "MaxRetries";
inline constexpr char TimeFrame_RunCounter[] = "RunCounter";

// A service table: what a time frame starts.
inline constexpr char FileTransfer[] = "FileTransfer";
inline constexpr char Service_Status[] = "Status";
inline constexpr char Service_Result[] = "Result";

inline constexpr char FirmwareUpdateTimePlan[] = "FirmwareUpdateTimePlan";
inline constexpr char FirmwareUpdateTimePlan_Enable[] = "Enable";
inline constexpr char FirmwareUpdateTimePlan_WeekDay[] = "WeekDay";
inline constexpr char FirmwareUpdateTimePlan_StartTimeHour[] = "StartTimeHour";
inline constexpr char FirmwareUpdateTimePlan_StartTimeMinute[] = "StartTimeMinute";
inline constexpr char FirmwareUpdateTimePlan_EndTimeHour[] = "EndTimeHour";
inline constexpr char FirmwareUpdateTimePlan_EndTimeMinute[] = "EndTimeMinute";

// The settings of the service daemon.
inline constexpr char Wexd[] = "wexd";
inline constexpr char Wexd_Enable[] = "Enable";

inline constexpr char AutoReboot[] = "AutoReboot";
inline constexpr char AutoReboot_Enable[] = "Enable";
inline constexpr char AutoReboot_WeekDay[] = "WeekDay";
inline constexpr char AutoReboot_Time[] = "Time";
inline constexpr char AutoReboot_LastReboot[] = "LastReboot";
inline constexpr char AutoReboot_MinimumRuntime[] = "MinimumRuntime";

// The command table: a 1 in "Trigger" asks the router to reboot.
inline constexpr char Reboot[] = "Reboot";
inline constexpr char Reboot_Trigger[] = "Trigger";

} // namespace orv::horad::dbm
