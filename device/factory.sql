-- The device as it leaves the factory. Columns stand in the order in which the
-- client prints a whole row.

BEGIN;

-- ATM circuits. Clients rely on Vpi being a row's third field, and on Enabled,
-- DeviceName, Vpi, Vci and FcsPreserve fitting in an answer of 28 bytes.
CREATE TABLE Atm (
    Id          INTEGER PRIMARY KEY,
    Enabled     INTEGER NOT NULL DEFAULT 0,
    Vpi         INTEGER NOT NULL DEFAULT 0,
    Vci         INTEGER NOT NULL DEFAULT 0,
    DeviceName  TEXT    NOT NULL DEFAULT '',
    FcsPreserve INTEGER NOT NULL DEFAULT 0
);
INSERT INTO Atm VALUES
    (1, 1, 1, 32, 'atm1', 0),
    (2, 1, 2, 32, 'atm2', 0),
    (3, 1, 3, 32, 'atm3', 0),
    (4, 0, 4, 32, 'atm4', 0),
    (5, 0, 5, 32, 'atm5', 0),
    (6, 0, 6, 32, 'atm6', 0),
    (7, 0, 7, 32, 'atm7', 0),
    (8, 1, 8, 35, 'atm8', 1);

-- VLAN object n: row 2n-1 is its LAN side, on while the object is; row 2n its
-- WAN side, enabled while frames keep their tag there.
CREATE TABLE VLAN (
    Id            INTEGER PRIMARY KEY,
    Enable        INTEGER NOT NULL DEFAULT 0,
    InterfaceName TEXT    NOT NULL DEFAULT '',
    ParentIf      TEXT    NOT NULL DEFAULT ''
);
INSERT INTO VLAN VALUES
    ( 1, 0, 'eth0.101', 'eth0'), ( 2, 1, 'wan1.101', 'wan1'),
    ( 3, 0, 'eth0.102', 'eth0'), ( 4, 1, 'wan1.102', 'wan1'),
    ( 5, 0, 'eth0.103', 'eth0'), ( 6, 1, 'wan1.103', 'wan1'),
    ( 7, 0, 'eth0.104', 'eth0'), ( 8, 1, 'wan1.104', 'wan1'),
    ( 9, 0, 'eth0.105', 'eth0'), (10, 1, 'wan1.105', 'wan1'),
    (11, 0, 'eth0.106', 'eth0'), (12, 1, 'wan1.106', 'wan1'),
    (13, 0, 'eth0.107', 'eth0'), (14, 1, 'wan1.107', 'wan1'),
    (15, 0, 'eth0.108', 'eth0'), (16, 1, 'wan1.108', 'wan1');

-- Settings of the VLAN function as a whole: one row.
CREATE TABLE VLANSingleParams (
    Id                    INTEGER PRIMARY KEY,
    DiscardUntaggedFrames INTEGER NOT NULL DEFAULT 0
);
INSERT INTO VLANSingleParams VALUES (1, 0);

-- Bridges, their members and their filters: none yet.
CREATE TABLE Bridge (
    Id   INTEGER PRIMARY KEY,
    Name TEXT    NOT NULL DEFAULT '',
    Stp  INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE BridgeInterface (
    Id               INTEGER PRIMARY KEY,
    BridgeId         INTEGER NOT NULL DEFAULT 0,
    Interface        TEXT    NOT NULL DEFAULT '',
    AllowLocalAccess INTEGER NOT NULL DEFAULT 0,
    AllowDHCP        INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE BridgeFilter (
    Id         INTEGER PRIMARY KEY,
    BridgeId   INTEGER NOT NULL DEFAULT 0,
    FilterRule TEXT    NOT NULL DEFAULT '',
    VLANId     INTEGER NOT NULL DEFAULT 0,
    PBit       INTEGER NOT NULL DEFAULT 0
);

-- Network interfaces and what each stands on. An enabled circuit k has the
-- node "wan<k>".
CREATE TABLE NetworkSetupNode (
    Id                     INTEGER PRIMARY KEY,
    Type                   TEXT    NOT NULL DEFAULT '',
    InterfaceName          TEXT    NOT NULL DEFAULT '',
    ParentInterface        TEXT    NOT NULL DEFAULT '',
    ConfigurationSpecifics TEXT    NOT NULL DEFAULT '',
    Enable                 INTEGER NOT NULL DEFAULT 0
);
INSERT INTO NetworkSetupNode VALUES
    (1, 'Ethernet', 'eth0',  'root',  '',  1),
    (2, 'SHDSL',    'SHDSL', 'root',  '',  1),
    (3, 'MPoA',     'wan1',  'SHDSL', '1', 1),
    (4, 'MPoA',     'wan2',  'SHDSL', '2', 1),
    (5, 'MPoA',     'wan3',  'SHDSL', '3', 1),
    (6, 'MPoA',     'wan8',  'SHDSL', '8', 1);

-- Interfaces whose state the device reports, by name.
CREATE TABLE StatusNetifConfig (
    Id   INTEGER PRIMARY KEY,
    Name TEXT    NOT NULL DEFAULT ''
);
INSERT INTO StatusNetifConfig VALUES (1, 'eth0');

COMMIT;
