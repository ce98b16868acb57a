-- The tables that the daemon works with. A table with the column "Id" has many rows, one without has one row
-- from the start. Only names, types, defaults and SHARED count: where devices share their tables, the columns
-- with that word are the same on all of them. They are what people configure; what a device finds out or does
-- stays its own.

CREATE TABLE WlanGlobals (
    WlanEnable   SWITCH NOT NULL DEFAULT 0,
    AlwaysEnable SWITCH NOT NULL DEFAULT 0 SHARED
);

-- A TIME is a text in local time, hours first ("18:30" or "18:30:00"); an empty one is none.
CREATE TABLE WlanTimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '' SHARED,
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1 SHARED,
    StartMon TIME NOT NULL DEFAULT '' SHARED, StopMon TIME NOT NULL DEFAULT '' SHARED,
    StartTue TIME NOT NULL DEFAULT '' SHARED, StopTue TIME NOT NULL DEFAULT '' SHARED,
    StartWed TIME NOT NULL DEFAULT '' SHARED, StopWed TIME NOT NULL DEFAULT '' SHARED,
    StartThu TIME NOT NULL DEFAULT '' SHARED, StopThu TIME NOT NULL DEFAULT '' SHARED,
    StartFri TIME NOT NULL DEFAULT '' SHARED, StopFri TIME NOT NULL DEFAULT '' SHARED,
    StartSat TIME NOT NULL DEFAULT '' SHARED, StopSat TIME NOT NULL DEFAULT '' SHARED,
    StartSun TIME NOT NULL DEFAULT '' SHARED, StopSun TIME NOT NULL DEFAULT '' SHARED
);

CREATE TABLE TimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '' SHARED,
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1 SHARED,
    StartMon TIME NOT NULL DEFAULT '' SHARED, StopMon TIME NOT NULL DEFAULT '' SHARED,
    StartTue TIME NOT NULL DEFAULT '' SHARED, StopTue TIME NOT NULL DEFAULT '' SHARED,
    StartWed TIME NOT NULL DEFAULT '' SHARED, StopWed TIME NOT NULL DEFAULT '' SHARED,
    StartThu TIME NOT NULL DEFAULT '' SHARED, StopThu TIME NOT NULL DEFAULT '' SHARED,
    StartFri TIME NOT NULL DEFAULT '' SHARED, StopFri TIME NOT NULL DEFAULT '' SHARED,
    StartSat TIME NOT NULL DEFAULT '' SHARED, StopSat TIME NOT NULL DEFAULT '' SHARED,
    StartSun TIME NOT NULL DEFAULT '' SHARED, StopSun TIME NOT NULL DEFAULT '' SHARED
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
    Enable          SWITCH  NOT NULL DEFAULT 0 SHARED,
    WeekDay         INTEGER(0, 7) NOT NULL DEFAULT 0 SHARED,
    StartTimeHour   INTEGER(0, 23) NOT NULL DEFAULT 0 SHARED,
    StartTimeMinute INTEGER(0, 59) NOT NULL DEFAULT 0 SHARED,
    EndTimeHour     INTEGER(0, 24) NOT NULL DEFAULT 0 SHARED,
    EndTimeMinute   INTEGER(0, 59) NOT NULL DEFAULT 0 SHARED
);

CREATE TABLE wexd (
    Enable INTEGER NOT NULL DEFAULT 0
);

-- WeekDay as above; MinimumRuntime in seconds.
CREATE TABLE AutoReboot (
    Enable         SWITCH  NOT NULL DEFAULT 0 SHARED,
    WeekDay        INTEGER(0, 7) NOT NULL DEFAULT 0 SHARED,
    Time           TIME    NOT NULL DEFAULT '' SHARED,
    LastReboot     TEXT    NOT NULL DEFAULT '',
    MinimumRuntime INTEGER NOT NULL DEFAULT 5400 SHARED
);

CREATE TABLE Reboot (
    Trigger INTEGER NOT NULL DEFAULT 0
);
