-- The tables that the daemon works with. A table with the column "Id" has many rows, one without has one row
-- from the start. Only names, types and defaults count.

CREATE TABLE WlanGlobals (
    WlanEnable   SWITCH NOT NULL DEFAULT 0,
    AlwaysEnable SWITCH NOT NULL DEFAULT 0
);

-- Times are texts, hours first ("18:30" or "18:30:00"), in local time; an empty one is none.
CREATE TABLE WlanTimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '',
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1,
    StartMon TEXT NOT NULL DEFAULT '', StopMon TEXT NOT NULL DEFAULT '',
    StartTue TEXT NOT NULL DEFAULT '', StopTue TEXT NOT NULL DEFAULT '',
    StartWed TEXT NOT NULL DEFAULT '', StopWed TEXT NOT NULL DEFAULT '',
    StartThu TEXT NOT NULL DEFAULT '', StopThu TEXT NOT NULL DEFAULT '',
    StartFri TEXT NOT NULL DEFAULT '', StopFri TEXT NOT NULL DEFAULT '',
    StartSat TEXT NOT NULL DEFAULT '', StopSat TEXT NOT NULL DEFAULT '',
    StartSun TEXT NOT NULL DEFAULT '', StopSun TEXT NOT NULL DEFAULT ''
);

CREATE TABLE TimePlans (
    Id             INTEGER PRIMARY KEY,
    TimePlanName   TEXT   NOT NULL DEFAULT '',
    TimePlanStatus SWITCH NOT NULL DEFAULT 0,
    Activate       SWITCH NOT NULL DEFAULT 1,
    StartMon TEXT NOT NULL DEFAULT '', StopMon TEXT NOT NULL DEFAULT '',
    StartTue TEXT NOT NULL DEFAULT '', StopTue TEXT NOT NULL DEFAULT '',
    StartWed TEXT NOT NULL DEFAULT '', StopWed TEXT NOT NULL DEFAULT '',
    StartThu TEXT NOT NULL DEFAULT '', StopThu TEXT NOT NULL DEFAULT '',
    StartFri TEXT NOT NULL DEFAULT '', StopFri TEXT NOT NULL DEFAULT '',
    StartSat TEXT NOT NULL DEFAULT '', StopSat TEXT NOT NULL DEFAULT '',
    StartSun TEXT NOT NULL DEFAULT '', StopSun TEXT NOT NULL DEFAULT ''
);

-- TimeFrameStart and TimeFrameEnd are seconds since the epoch; MaxRetries -1 is without limit.
CREATE TABLE TimeFrame (
    Id             INTEGER PRIMARY KEY,
    WindowMode     INTEGER NOT NULL DEFAULT 1,
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
    WeekDay         INTEGER NOT NULL DEFAULT 0,
    StartTimeHour   INTEGER NOT NULL DEFAULT 0,
    StartTimeMinute INTEGER NOT NULL DEFAULT 0,
    EndTimeHour     INTEGER NOT NULL DEFAULT 0,
    EndTimeMinute   INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE wexd (
    Enable INTEGER NOT NULL DEFAULT 0
);

-- WeekDay as above; MinimumRuntime in seconds.
CREATE TABLE AutoReboot (
    Enable         SWITCH  NOT NULL DEFAULT 0,
    WeekDay        INTEGER NOT NULL DEFAULT 0,
    Time           TEXT    NOT NULL DEFAULT '',
    LastReboot     TEXT    NOT NULL DEFAULT '',
    MinimumRuntime INTEGER NOT NULL DEFAULT 5400
);

CREATE TABLE Reboot (
    Trigger INTEGER NOT NULL DEFAULT 0
);
