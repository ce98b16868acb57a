-- The tables that the daemon works with. A table with the column "Id" has many rows, one without has one row
-- from the start. Only names, types and defaults count.

CREATE TABLE WlanGlobals (
    WlanEnable   SWITCH NOT NULL DEFAULT 0,
    AlwaysEnable SWITCH NOT NULL DEFAULT 0
);

-- A TIME is a text in local time, hours first ("18:30" or "18:30:00"); an empty one is none.
CREATE TABLE WlanTimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '',
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1,
    StartMon TIME NOT NULL DEFAULT '', StopMon TIME NOT NULL DEFAULT '',
    StartTue TIME NOT NULL DEFAULT '', StopTue TIME NOT NULL DEFAULT '',
    StartWed TIME NOT NULL DEFAULT '', StopWed TIME NOT NULL DEFAULT '',
    StartThu TIME NOT NULL DEFAULT '', StopThu TIME NOT NULL DEFAULT '',
    StartFri TIME NOT NULL DEFAULT '', StopFri TIME NOT NULL DEFAULT '',
    StartSat TIME NOT NULL DEFAULT '', StopSat TIME NOT NULL DEFAULT '',
    StartSun TIME NOT NULL DEFAULT '', StopSun TIME NOT NULL DEFAULT ''
);

CREATE TABLE TimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '',
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1,
    StartMon TIME NOT NULL DEFAULT '', StopMon TIME NOT NULL DEFAULT '',
    StartTue TIME NOT NULL DEFAULT '', StopTue TIME NOT NULL DEFAULT '',
    StartWed TIME NOT NULL DEFAULT '', StopWed TIME NOT NULL DEFAULT '',
    StartThu TIME NOT NULL DEFAULT '', StopThu TIME NOT NULL DEFAULT '',
    StartFri TIME NOT NULL DEFAULT '', StopFri TIME NOT NULL DEFAULT '',
    StartSat TIME NOT NULL DEFAULT '', StopSat TIME NOT NULL DEFAULT '',
    StartSun TIME NOT NULL DEFAULT '', StopSun TIME NOT NULL DEFAULT ''
);

-- TimeFrameStart and TimeFrameEnd are seconds since the epoch; MaxRetries -1 is without limit.
CREATE TABLE TimeFrame (
    Id             INTEGER PRIMARY KEY,
    WindowMode     INTEGER(1, 3) NOT NULL DEFAULT 1,
    Servicetable   TEXT    NOT NULL DEFAULT 'FileTransfer',
    ServicetableId INTEGER NOT NULL DEFAULT 0,
    TimeFrameStart COUNTER NOT NULL DEFAULT 0,
    TimeFrameEnd   COUNTER NOT NULL DEFAULT 0,
    UserMessage    TEXT    NOT NULL DEFAULT '',
    MaxRetries     INTEGER NOT NULL DEFAULT 0,
    RunCounter     COUNTER NOT NULL DEFAULT 0
);

CREATE TABLE FileTransfer (
    Id     INTEGER PRIMARY KEY,
    Status INTEGER NOT NULL DEFAULT 0,
    Result INTEGER NOT NULL DEFAULT 0
);

-- WeekDay: 1 is Monday, 7 Sunday, 0 every day.
CREATE TABLE FirmwareUpdateTimePlan (
    Id              INTEGER PRIMARY KEY,
    Enable          SWITCH  NOT NULL DEFAULT 0,
    WeekDay         INTEGER(0, 7) NOT NULL DEFAULT 0,
    StartTimeHour   INTEGER(0, 23) NOT NULL DEFAULT 0,
    StartTimeMinute INTEGER(0, 59) NOT NULL DEFAULT 0,
    EndTimeHour     INTEGER(0, 24) NOT NULL DEFAULT 0,
    EndTimeMinute   INTEGER(0, 59) NOT NULL DEFAULT 0
);

CREATE TABLE wexd (
    Enable INTEGER NOT NULL DEFAULT 0
);

-- WeekDay as above; MinimumRuntime in seconds.
CREATE TABLE AutoReboot (
    Enable         SWITCH  NOT NULL DEFAULT 0,
    WeekDay        INTEGER(0, 7) NOT NULL DEFAULT 0,
    Time           TIME    NOT NULL DEFAULT '',
    LastReboot     TEXT    NOT NULL DEFAULT '',
    MinimumRuntime INTEGER NOT NULL DEFAULT 5400
);

CREATE TABLE Reboot (
    Trigger INTEGER NOT NULL DEFAULT 0
);
