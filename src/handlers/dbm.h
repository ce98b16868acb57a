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

} // namespace orv::horad::dbm
