/**
 * @file
 * libcorvanta: the layer-2 circuits, DSL line rates, interfaces and managed
 * objects of an ATM-over-SHDSL modem-router, for the SNMP agent that loads it.
 *
 * The contract:
 * - initialize() comes before every status query, update_managed_objects()
 *   before the VLAN objects and atm_access_c().
 * - One call at a time. The library takes no lock and starts no thread.
 * - A call that runs `quorlet` or `vellstat` blocks until it ends; a locked
 *   database makes one client command take up to 19 seconds.
 * - A returned char* is the caller's and is released with free(); a returned
 *   const char* is constant text of the library.
 * - No exception leaves a function declared here. A status query answers with
 *   its failure value and a warning in the system log; every other function
 *   answers with a status code. A null pointer is such a failure, except in the
 *   database field functions, whose pointers must be valid.
 * - Outputs are written on success only, unless a function or the list below
 *   says otherwise.
 * - A text that enters a client command is refused with CORVANTA_UNFIT, before
 *   anything runs, when it would end or change the command: when it holds a
 *   double quote, $, backquote, backslash, ; or a control character, or, behind
 *   a blank, a token that begins with "integer:" or "text:".
 *
 * Where it looks:
 * - `quorlet` and `vellstat` are started by name through the shell, which looks
 *   for them in the PATH that the host's process has at the time, with the host's
 *   environment and standard error. The circuits are read from
 *   /proc/net/atm/pvc. No path can be configured.
 *
 * Without the device, that is without these:
 * - initialize() succeeds, and the built-in table of interfaces is there. The
 *   shell writes a line "not found" to the host's standard error for each run.
 * - getLayer2IfStatus() gives an empty text, getSpeedInfo() 1 and zeros.
 * - After update_managed_objects() the cache reads off and empty, with
 *   CORVANTA_OK: VlanEnabled_snmp() 2 (false), VlanDiscardTag_snmp() 1 (true),
 *   atm_access_c() zeros. VlanDefaultWanInterface() and default_Bridge() find no
 *   bridge, which is CORVANTA_OK too. Whatever else asks the database gives
 *   CORVANTA_FAILED, and so does a set, unless it has nothing to change.
 * - client_failures() counts, which tells such a machine from a device that has
 *   nothing configured.
 *
 * Things to know:
 * - A sequence of commands stops at the first failure that counts and undoes
 *   nothing; some failures do not count. client_failures() tells of all.
 * - VlanEnabled_snmp() stores the new state in the cache before it writes to the
 *   database. When that write failed, the same set again does nothing and gives
 *   CORVANTA_OK, until the next update_managed_objects().
 * - update_managed_objects() on a locked database tries each of 34 commands for
 *   19 seconds, eleven minutes in all; then everything reads as off and empty.
 * - A set of the default WAN interface can create a bridge, which the cache does
 *   not know before the next update_managed_objects().
 * - Deleting a default bridge that has no filter stops at the missing filter:
 *   the row in `Bridge` stays, and so does its name.
 * - default_Bridge() writes what it found or created when it fails, too.
 * - getSpeedInfo() zeroes the record also when the tool does not start.
 * - VlanWanInterface() on an object that is off stores the name and then gives
 *   CORVANTA_UNKNOWN_ROW; a get takes any index that has a row.
 * - A stored integer that fits no int cannot be read: CORVANTA_FAILED. A VPI in
 *   the report becomes the nearest int instead.
 * - A signal handler of the host's that is installed without SA_RESTART can make
 *   a client command fail; any handler can shorten a pause. With SIGCHLD ignored
 *   everything works, but the readers log "pclose error". pthread_cancel()
 *   inside a call ends the process.
 * - time2string() uses the time zone that the process read first; tzset() makes
 *   it read a later one.
 * - Once loaded, the library stays: dlclose() does not unload it.
 *
 * Valid C11 and C++17.
 */
#ifndef CORVANTA_H
#define CORVANTA_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <string>
#endif

/**
 * @defgroup corvanta_types Types and version
 * Version, statuses, accesses and records of libcorvanta.
 * @{
 */

/** Raised with what hosts built before cannot live with; as in the SONAME. */
#define CORVANTA_VERSION_MAJOR 1
/** Raised with what is added. */
#define CORVANTA_VERSION_MINOR 2
/** Raised with what is mended. */
#define CORVANTA_VERSION_PATCH 0

/** Marks what the library exports. */
#define CORVANTA_API __attribute__((visibility("default")))

/** A fixed underlying type, which lets C++ hold a number that names no enumerator. */
#ifdef __cplusplus
#define CORVANTA_INT : int
extern "C" {
#else
#define CORVANTA_INT
#endif

/* ---------------------------------------------------------------- types -- */

/** What every int result below means, unless the function says otherwise. */
typedef enum corvanta_status CORVANTA_INT {
    CORVANTA_OK = 0,          /**< done; outputs are written */
    CORVANTA_FAILED = 1,      /**< client not started, no or unusable answer, null
                                   pointer, no free slot, no cache, out of memory */
    CORVANTA_LOCKED = 2,      /**< the database stayed locked through all attempts */
    CORVANTA_UNKNOWN_ROW = 3, /**< no such row */
    CORVANTA_NO_COMMAND = 4,  /**< no command, or no record, was given */
    CORVANTA_BAD_INDEX = 5,   /**< no such cached ATM row */
    CORVANTA_UNFIT = 6        /**< a command, an answer or a value does not fit,
                                   or a text cannot stand in a command */
} corvanta_status;

/** The access that a handler or accessor performs. */
typedef enum access_type CORVANTA_INT {
    access_none = 0,
    access_get = 1,    /**< read the value */
    access_set = 2,    /**< write the value */
    access_create = 3, /**< create the rows behind an object */
    access_delete = 4  /**< delete the rows behind an object */
} access_type;

/** State of a layer-2 interface in the text of getLayer2IfStatus(). */
typedef enum ly2State CORVANTA_INT {
    ly2State_up = 1,  /**< the kernel has an open circuit on the VPI */
    ly2State_down = 2 /**< it has none */
} ly2State;

/**
 * DSL line rates, as `vellstat info` prints them; a number that does not fit is
 * the largest. The tool names no unit. As far as is known it is kbit/s, of which
 * an SHDSL wire pair carries up to 5696.
 */
typedef struct speedInfo_s {
    uint32_t dslActualDataRateDown;     /**< actual rate, downstream */
    uint32_t dslActualDataRateUp;       /**< actual rate, upstream */
    uint32_t dslAttainableDataRateDown; /**< attainable rate, downstream */
    uint32_t dslAttainableDataRateUp;   /**< attainable rate, upstream */
} speedInfo_s;

/** One ATM circuit: a row of the configuration table `Atm`. */
typedef struct atm_entry {
    int32_t Enabled;     /**< TruthValue; 0 when the stored value is neither 0 nor 1 */
    char DeviceName[20]; /**< at most 19 characters, terminated */
    int32_t Vpi;         /**< virtual path identifier */
    int32_t Vci;         /**< virtual circuit identifier */
    int32_t FcsPreserve; /**< as stored */
} atm_entry;

/** A column of an `Atm` row that atm_access_c() can write. */
typedef enum vantorKx9_param_ids CORVANTA_INT {
    vantorKx9_Vpi = 4,
    vantorKx9_Vci = 5
} vantorKx9_param_ids;

/** @} */

/* -------------------------------------------------------------- globals -- */

/**
 * @defgroup corvanta_globals Global variables
 * Switches of libcorvanta.
 * @{
 */

/** Trace switch of the library; set by initialize(). Initially false. */
extern CORVANTA_API bool m_bVerbose;

/** Log level of the cache's ATM reads: below 6 each is traced. Initially 7. */
extern CORVANTA_API int debug_level;

/** For the host's use; the library neither reads nor writes it. Initially -1. */
extern CORVANTA_API int m_iLogHandle;

/** @} */

/* ------------------------------------------------------- status queries -- */

/**
 * @defgroup corvanta_status Status queries
 * Starting libcorvanta, and asking it for circuits, line rates and interfaces.
 * @{
 */

/**
 * Makes the library ready: opens the system log as "corvanta" and drops the
 * cache of managed objects.
 * @param verbose any value but 0 turns the trace lines on
 * @return 1 when ready, 0 on failure (with an error line in the system log)
 */
CORVANTA_API int initialize(int verbose);

/**
 * State of every circuit of the table `Atm`, in the table's order, such as
 * "VC1=1|PPPoE1=1|VC8=2". A circuit is up (1) when its VPI has an open circuit
 * in /proc/net/atm/pvc, else down (2); VPI 1 and 2 also name their PPPoE
 * interface, VPI 3 its DHCP interface. Runs `quorlet` 1 + 2 times per row.
 * @return new text, empty when no circuit is configured and on failure; null
 *         only when there is no memory for that
 */
CORVANTA_API char* getLayer2IfStatus(void);

/** @return constant text: "UP" for 1, "DOWN" for 2, "N/A" for any other number */
CORVANTA_API const char* ly2State2String(int state);

/**
 * DSL line rates from the group "Line Rate Information" of `vellstat info`.
 * @param[out] info the caller's record; all zero when there are no rates
 * @return 1 when a shell could be started for the tool, even if there is no such
 *         tool; else 0
 */
CORVANTA_API int getSpeedInfo(speedInfo_s* info);

/** @return new text "SpeedInfo[dslActualDataRateDown=...]", null on failure */
CORVANTA_API char* speedInfoToString(const speedInfo_s* info);

/**
 * Interface index of a physical interface name such as "eth0" (built-in table).
 * @return the index, 0 for an unknown or null name
 */
CORVANTA_API int physicalIFNameToIndex(const char* name);

/**
 * Logical interface name of an interface index, such as "LAN" (built-in table).
 * @param      index  interface index; an unknown one gives "N/A"
 * @param[out] buffer receives the name, cut to size - 1 characters and
 *                    terminated, the rest filled with NULs; empty on failure;
 *                    null is one
 * @param      size   bytes of the buffer; with 0 the buffer is not touched and
 *                    may be null
 */
CORVANTA_API void indexToLogicalIfName(int index, char* buffer, size_t size);

/** @return new text "MappingTable[size=14:14, 0=n/a:N/A,...]", null on failure */
CORVANTA_API char* mappingTableToString(void);

/** @return new text "==> FIL <==", empty on failure */
CORVANTA_API char* getRowSnmpAgent(void);

/** @return 5 */
CORVANTA_API int isEnabled(void);

/** Makes the local time's text once and drops it. @return 0 */
CORVANTA_API int testMethod2(void);

/** @} */

/* ------------------------------------------------------ managed objects -- */

/**
 * @defgroup corvanta_objects Managed objects
 * Reading and setting ATM circuits, the default bridge and VLAN objects.
 *
 * A TruthValue is 1 for true and 2 for false. Of a pointer to a value a set
 * reads what it points to and leaves it as it is; a get writes it, on success
 * only.
 *
 * The name of a WAN interface is compared with no list. On the device it is
 * "wan1" to "wan8", the interface of an enabled circuit; an empty name is none,
 * and "wanX" is what a default bridge has whose first set stopped halfway. Up to
 * 13 characters work everywhere. A default WAN interface with more keeps
 * VlanWanInterface() from setting anything (CORVANTA_UNFIT); with more than 18,
 * an object that is on cannot use the interface; more than 27 are stored, but
 * cannot be read back.
 * @{
 */

/**
 * Loads the cache of managed objects afresh from the tables `Atm`, `Bridge`,
 * `BridgeInterface` and `VLAN`. What cannot be read stays zero or empty.
 * Runs `quorlet` 49 times and 3 times more per row of `BridgeInterface`.
 */
CORVANTA_API void update_managed_objects(void);

/**
 * Reads or writes a cached row of `Atm`.
 * @param         access access_get copies the cached row into *entry; access_set
 *                       copies *entry into the cache and writes one column to the
 *                       database
 * @param[in,out] entry  the caller's record
 * @param         index  row Id, 1 to 8 (0 is a row of the cache only)
 * @param         param  the column to write, a vantorKx9_param_ids; others give
 *                       CORVANTA_FAILED, the cached row is changed all the same
 */
CORVANTA_API int atm_access_c(int access, atm_entry* entry, int index, int param);

/**
 * Whether an ATM circuit is enabled: `Atm` column `Enabled`. A set also creates
 * or removes the circuit's `NetworkSetupNode` row "wan<index>".
 * @param         access access_get or access_set
 * @param[in,out] value  TruthValue
 * @param         index  row Id of the circuit, 1 to 8
 */
CORVANTA_API int AtmEnabled_snmp(access_type access, int* value, int index);

/**
 * Whether a VLAN object is on: `VLAN` row 2n-1, column `Enable`, from the cache.
 * A set builds or removes the object's bridge.
 * @param         access    access_get or access_set
 * @param[in,out] value     TruthValue
 * @param         vlanIndex VLAN object n, 1 to 8
 */
CORVANTA_API int VlanEnabled_snmp(access_type access, int* value, int vlanIndex);

/**
 * Whether the WAN side of a VLAN object goes untagged: true when `Enable` of
 * `VLAN` row 2n is 0 in the cache. A set takes effect at once on an object that
 * is on; on one that is off it is stored, and the status is that of the lookup
 * of the missing bridge (CORVANTA_UNKNOWN_ROW).
 * @param         access    access_get or access_set
 * @param[in,out] value     TruthValue
 * @param         vlanIndex VLAN object n, 1 to 8
 */
CORVANTA_API int VlanDiscardTag_snmp(access_type access, int* value, int vlanIndex);

/**
 * WAN parent interface of a VLAN object: `VLAN` row 2n, column `ParentIf`. A set
 * to the default WAN interface deletes the default bridge first. Buffer and length
 * as in config_string_access_by_id().
 * @param         access     access_get or access_set
 * @param[in,out] buffer     in for a set: the name, with or without a terminator;
 *                           out for a get: the name, terminated
 * @param         bufferSize bytes of the buffer: for a set *length or more, for a
 *                           get at least 2 more than the name has
 * @param[in,out] length     in for a set: characters of the name; out for a get,
 *                           which does not look at it: the same, the terminator
 *                           not counted
 * @param         vlanIndex  VLAN object n, 1 to 8
 */
CORVANTA_API int VlanWanInterface(access_type access, char* buffer, int bufferSize, int* length,
                                  int vlanIndex);

/**
 * Default WAN interface: `Interface` of the default bridge's WAN row in
 * `BridgeInterface`. Without a default bridge a get gives CORVANTA_OK and writes
 * neither buffer nor length. A set creates the bridge when needed and switches off the VLAN
 * objects that use the interface; an empty value deletes the bridge. Arguments
 * as in VlanWanInterface().
 */
CORVANTA_API int VlanDefaultWanInterface(access_type access, char* buffer, int bufferSize,
                                         int* length);

/**
 * Whether untagged frames are discarded: `VLANSingleParams` row 1, column
 * `DiscardUntaggedFrames`. A set also creates or removes the default bridge's
 * row in `BridgeFilter`.
 * @param         access access_get or access_set
 * @param[in,out] value  TruthValue
 */
CORVANTA_API int VlanDiscardUntaggedFrames_snmp(access_type access, int* value);

/** @} */

/* ------------------------------------------------------- database fields -- */

/**
 * @defgroup corvanta_database Database fields
 * Reading and writing single fields and rows of the configuration database.
 * @{
 */

/**
 * Reads or writes an integer column of the row with an Id. access_none,
 * access_create and access_delete give CORVANTA_FAILED, other values
 * CORVANTA_UNFIT; neither runs anything.
 */
CORVANTA_API int config_int_access_by_id(access_type access, int* value, const char* table,
                                         const char* column, int id);

/**
 * Reads an integer column of the row whose key column has a value. Not repeated
 * when the database is locked: CORVANTA_FAILED, as for a command of 100
 * characters or more.
 */
CORVANTA_API int config_int_read_by_key(int* value, const char* table, const char* column,
                                        const char* keyColumn, const char* keyValue);

/**
 * Reads a whole row in one run of the client, as the client prints it: the
 * columns separated by "|", without the newline. Repeated while the database is
 * locked. A row is given whole or refused with CORVANTA_UNFIT: one that does
 * not fit the buffer with its terminator, that has 4095 bytes or more, or that
 * came without its newline, cut off.
 * @param      table  its name
 * @param      row    counted from 0; past the last one CORVANTA_UNKNOWN_ROW
 * @param[out] buffer receives the row, terminated
 * @param      size   bytes of the buffer
 * @param[out] length receives the row's length, the terminator not counted
 */
CORVANTA_API int config_row_read(const char* table, int row, char* buffer, int size, int* length);

/**
 * Client commands of this process that ended with neither an answer nor
 * "Unknown row": not started, nothing printed, locked to the end, an answer too
 * long, or refused before running. Each counts once, whoever ran it, also where
 * a sequence or a load of the cache ignores the failure. Never reset.
 *
 * Compared before and after a call it tells whether what the call read or did
 * is complete, which the call's status alone does not.
 */
CORVANTA_API unsigned long client_failures(void);

/** @return TruthValue of 0 (2) and 1 (1); 0 for every other value */
CORVANTA_API int TruthValue_internal_to_snmp(int value);

/** @return 0 for 2; every other value as it is */
CORVANTA_API int TruthValue_snmp_to_internal(int value);

#ifdef __cplusplus
} /* extern "C" */

/**
 * @ingroup corvanta_status
 * For C++ only.
 * @return local time such as "16.11.2026 17:12:31", "xx.xx.xx" on failure
 */
CORVANTA_API std::string time2string();

/**
 * @ingroup corvanta_objects
 * Looks up the default bridge, the one that joins "eth0" with a WAN interface;
 * access_create creates it, access_delete deletes it. Each Id is -1 when
 * unknown. For C++ only.
 * @param      access     access_create, access_delete, or any other to look it up
 * @param[out] bridgeId   Id in `Bridge`
 * @param[out] lanIfaceId Id of the "eth0" row in `BridgeInterface`
 * @param[out] wanIfaceId Id of the WAN row in `BridgeInterface`
 * @param[out] filterId   Id in `BridgeFilter`
 */
CORVANTA_API int default_Bridge(access_type access, int* bridgeId, int* lanIfaceId, int* wanIfaceId,
                                int* filterId);

/**
 * Runs one client command line and delivers its answer without the newline. A
 * locked database is tried 20 times, with pauses of one second. For C++ only.
 * @param[in,out] cmd        the command line, terminated
 * @param         cmdSize    bytes of the buffer that holds it
 * @param         cmdLen     its length, as the formatting call returned it: below
 *                           1, or not below cmdSize, gives CORVANTA_UNFIT
 * @param[out]    answer     receives the answer, cut to answerSize - 1 characters
 *                           and terminated; null: the answer replaces the command
 *                           in cmd
 * @param         answerSize bytes of answer, at least 1
 * @param         level      below 6 each attempt writes a trace line
 * @return CORVANTA_UNFIT also for an answer of 29 bytes or more
 */
CORVANTA_API int call_cmd(char* cmd, int cmdSize, int cmdLen, char* answer, int answerSize,
                          int level);

/** The same with the answer in place of the command, traced. */
CORVANTA_API int call_cmd(char* cmd, int cmdSize, int cmdLen);

/** The same for a command of at most 198 characters. */
CORVANTA_API int call_cmd(std::string cmd, std::string& answer, int level);

/**
 * The same as the C form below through a text of at most 18 characters, both
 * ways; a longer one gives CORVANTA_UNFIT.
 */
CORVANTA_API int config_string_access_by_id(access_type access, std::string& value,
                                            const char* table, const char* column, int id);

extern "C" {
#endif

/**
 * Reads or writes a text column of the row with an Id.
 * A get fills buffer, terminated, and length, which it does not look at. A text of
 * more than 27 characters gives CORVANTA_UNFIT; so does one of more than
 * bufferSize - 2, of which a buffer of 3 bytes or more then holds the beginning.
 * A set writes the first *length characters, which need no terminator, and leaves
 * buffer and length as they are. A length that is negative or larger than
 * bufferSize gives CORVANTA_UNFIT.
 */
CORVANTA_API int config_string_access_by_id(access_type access, char* buffer, int bufferSize,
                                            int* length, const char* table, const char* column,
                                            int id);

/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* CORVANTA_H */
