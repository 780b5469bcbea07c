/*
 * media_adapter.h - find media adapters on the local network, read and write their settings, and use the mass
 * storage behind them.
 *
 * Fifteen plain, blocking functions (C11 and C++20, C linkage). Loading the library starts its one worker thread,
 * unloading it stops it; there is nothing to initialise and nothing to free.
 *
 * Results. Every function but API_SetIpInterface and API_Terminate returns the address of a record inside the library.
 * The address is the same on every call and stays valid until the library is unloaded. The contents belong to the last
 * call that used the same record (the eight functions that return StatusResult share one), from whatever thread.
 *
 * Threads. Any thread may call any function; calls are serialised inside the library. The lock inside does not cover
 * what a caller does with a result: where several threads call, hold one lock of your own around each call and the
 * copying of what you need of its result, the same lock for all functions.
 *
 * Layouts. The records below are part of the binary interface: their sizes, the offsets of their fields and the
 * numbers of statuses and limits stay the same as long as the library's name does (libmediaadapter.so.1,
 * mediaadapter.dll). What a version adds are functions and statuses. Compile with the default packing.
 *
 * No cancellation. A call cannot be called back by another thread. Only unloading the library and the end of the
 * process end a call that is inside, with MEDIA_ADAPTER_NO_RESPONSE; they take up to 1.1 seconds when the worker hangs
 * in the host's file system. A worker that cannot be ended even by force (an uninterruptible wait of the system) stays
 * behind: a process may end over it, but should not unload the library.
 *
 * Long requests. Once its turn has come, a call waits for its request for 60 seconds at most. Then it returns
 * MEDIA_ADAPTER_NO_RESPONSE, its message empty or an earlier call's, while the request goes on: it still writes the
 * local file and the progress value, and in the end its true status and message into the record. After a call that took
 * so long, wait for the end of its request: requests run one after another, so one that changes nothing ends only after
 * it. Repeat API_SetIpInterface with the address that is bound already (or "" for any) for as long as it returns
 * MEDIA_ADAPTER_NO_RESPONSE, as it gives up after 60 seconds itself; then read status and message from the record that
 * the first call returned. Make no other call in between. A call that gives up while another's request is still running
 * has not begun and never will.
 *
 * Forks. Forked children have the library's memory, but no worker: in them every call returns
 * MEDIA_ADAPTER_NO_RESPONSE (a search: no devices) at once, and unloading and exit do nothing. The parent goes on
 * undisturbed. A child that wants to use the library unloads it and loads it anew, or executes a program.
 *
 * Statuses. A result's `status` is one of the MEDIA_ADAPTER_... values below or a status of the device that this list
 * does not know, as the device gave it; `message` is its English text.
 *
 * Memory. Without memory for a request nothing is sent and it returns MEDIA_ADAPTER_NO_RESPONSE, a search no devices;
 * when memory runs out in the middle of it, MEDIA_ADAPTER_NOT_ENOUGH_MEMORY (API_SetIpInterface:
 * MEDIA_ADAPTER_SOCKET_FAILED), and what was written by then stays. No C++ exception leaves a function.
 *
 * Checks. A request to a device is checked before anything is sent, in this order: device index (255), password longer
 * than 16 characters (254), paths null, empty or longer than 259 characters (243). A null password is the empty one.
 *
 * One writer. The volume behind a device belongs to one program on one host at a time: nothing keeps two that write to
 * it from losing files, neither the device nor the library. The volume's layout is remembered until another device is
 * used: a medium that was changed or exchanged elsewhere asks for a new start of the library.
 *
 * Failures. Nothing is rolled back after a failure on the way; each function says what it may leave. A damaged volume
 * costs a request its result: MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS for a chain that leaves the volume, a size that the
 * volume cannot hold, or a step that would store something in a folder's own clusters.
 *
 * Texts. They are NUL-terminated single-byte strings. They are read when the call's turn has come, and not after it has
 * returned; threads may pass the same text, also one that loses its trailing separator. Device paths start at the root
 * and separate names with a backslash: "\\music\\song.mp3" in C; "\\" is the root. Letter case does not matter in
 * device paths, for A to Z.
 *
 * Names. A byte of a name on the volume is the character of the same number, U+00XX (ISO 8859-1), whatever the bytes
 * mean to the host: the library converts nothing. A program that works in UTF-8 converts each character up to U+00FF to
 * the byte of its number before a call, each byte of a listed name to the character of its number after it, and refuses
 * what lies above. Local paths are the host's own, byte for byte.
 */
#ifndef MEDIA_ADAPTER_H
#define MEDIA_ADAPTER_H

#include <stdint.h>

/* The version of this header, and one number to compare: 10203 is 1.2.3. */
#define MEDIA_ADAPTER_VERSION_MAJOR 1
#define MEDIA_ADAPTER_VERSION_MINOR 0
#define MEDIA_ADAPTER_VERSION_PATCH 0
#define MEDIA_ADAPTER_VERSION \
  (MEDIA_ADAPTER_VERSION_MAJOR * 10000 + MEDIA_ADAPTER_VERSION_MINOR * 100 + MEDIA_ADAPTER_VERSION_PATCH)

#if defined(_WIN32)
#if defined(MEDIA_ADAPTER_BUILD)
#define MEDIA_ADAPTER_EXPORT __declspec(dllexport)
#else
#define MEDIA_ADAPTER_EXPORT __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define MEDIA_ADAPTER_EXPORT __attribute__((visibility("default")))
#else
#define MEDIA_ADAPTER_EXPORT
#endif

/* The calling convention, whatever the compiler's own is; pointers to the functions need it too. */
#if defined(_WIN32)
#define MEDIA_ADAPTER_CALL __cdecl
#else
#define MEDIA_ADAPTER_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Values of a result's `status`. 1 to 9 and 49 are the device's answers, 236 to 255 the library's own. */
enum MediaAdapterStatus {
  MEDIA_ADAPTER_OK = 0,
  MEDIA_ADAPTER_INVALID_ELEMENT_SIZE = 1,
  MEDIA_ADAPTER_INVALID_ELEMENT_ID = 2,
  MEDIA_ADAPTER_INVALID_PASSWORD = 3,
  MEDIA_ADAPTER_PACKET_TOO_LARGE = 4,
  MEDIA_ADAPTER_BUSY = 5,
  MEDIA_ADAPTER_NOT_READY = 6,
  MEDIA_ADAPTER_NOT_CONNECTED = 7,
  MEDIA_ADAPTER_PROTOCOL_ERROR = 8,
  MEDIA_ADAPTER_PACKETS_NOT_RECEIVED = 9,
  MEDIA_ADAPTER_STORAGE_NOT_ACCESSIBLE = 49,
  MEDIA_ADAPTER_NAME_IN_USE = 236,
  MEDIA_ADAPTER_TERMINATING = 237,
  MEDIA_ADAPTER_NO_UNIQUE_SHORT_NAME = 238,
  MEDIA_ADAPTER_NO_FREE_DIRECTORY_ENTRIES = 239,
  MEDIA_ADAPTER_CANNOT_OVERWRITE_DIRECTORY = 240,
  MEDIA_ADAPTER_CANNOT_DELETE_DIRECTORY = 241,
  MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES = 242,
  MEDIA_ADAPTER_INVALID_PATH_LENGTH = 243,
  MEDIA_ADAPTER_INVALID_PATH = 244,
  MEDIA_ADAPTER_ROOT_NOT_AT_CLUSTER_2 = 245,
  MEDIA_ADAPTER_INVALID_SECTORS_PER_CLUSTER = 246,
  MEDIA_ADAPTER_UNSUPPORTED_FAT_TYPE = 247,
  MEDIA_ADAPTER_INVALID_SIGNATURE = 248,
  MEDIA_ADAPTER_NOT_ENOUGH_MEMORY = 249,
  MEDIA_ADAPTER_INVALID_SECTOR_SIZE = 250,
  MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS = 251,
  MEDIA_ADAPTER_INVALID_SECTOR_COUNT = 252,
  MEDIA_ADAPTER_NO_RESPONSE = 253,
  MEDIA_ADAPTER_INVALID_PASSWORD_LENGTH = 254,
  MEDIA_ADAPTER_DEVICE_NOT_FOUND = 255,

  /* Only returned by API_SetIpInterface; they have no text. */
  MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS = 10,
  MEDIA_ADAPTER_SOCKET_FAILED = 11
};

/* Limits of the interface. */
#define MEDIA_ADAPTER_MAX_DEVICES 40  /* devices that one search lists */
#define MEDIA_ADAPTER_MAX_PASSWORD 16 /* characters of a password */
#define MEDIA_ADAPTER_MAX_PATH 259    /* characters of a path */
#define MEDIA_ADAPTER_MAX_LISTING 511 /* rows of a directory listing */
#define MEDIA_ADAPTER_MESSAGE_SIZE 60 /* bytes of a message, its NUL included */

/* The name of a configuration element in an element list. */
#define MEDIA_ADAPTER_ELEMENT(elementClass, elementIndex) ((uint16_t)((elementClass)*256 + (elementIndex)))

/*
 * One device that a search found, 82 bytes. Texts are raw bytes: a text that fills its field has no terminator, a
 * shorter one is followed by zeros. Fields that the device's answer did not carry are zero.
 */
typedef struct DeviceEntry {
  uint8_t name[16];       /* element (0,2), text; what the filter of API_Search compares */
  uint8_t element8_14;    /* 1 to 10 */
  uint8_t element0_0[16]; /* text */
  uint8_t element0_1[4];
  uint8_t element8_6;     /* 16, 32, 48, 49, 50, 64 or 65 */
  uint8_t element8_0[32]; /* text */
  uint8_t element8_1;     /* 1 to 14 */
  uint8_t ipAddress[4];   /* element (1,0), first octet first */
  uint8_t element9_0;     /* 0, 1, 2, 16 or 32 */
  uint8_t macAddress[6];
} DeviceEntry;

/*
 * The image of a device's settings, 952 bytes. A field holds its element exactly as it travels: integers little-endian,
 * texts as raw bytes without terminator, addresses first octet first. Fields named `unused...` are never read or sent.
 */
typedef struct ConfigurationData {
  uint8_t element0_0[16];
  uint8_t element0_1[4];
  uint8_t element0_2[16];
  uint8_t element1_0[4];
  uint8_t element1_1[4];
  uint8_t element1_2[4];
  uint8_t element1_3;
  uint8_t element1_4;
  uint8_t element1_5;
  uint8_t element1_8;
  uint8_t element1_9;
  uint8_t element1_10;
  uint8_t unused54[2];
  uint8_t element2_0[6];
  uint8_t element2_1;
  uint8_t element2_2;
  uint8_t element2_3[4];
  uint8_t element2_4[32];
  uint8_t element2_5[4];
  uint8_t element2_6[32];
  uint8_t element2_7[4];
  uint8_t element4_0[64];
  uint8_t element4_1[56];
  uint8_t element4_2[88];
  uint8_t element8_0[32];
  uint8_t element8_1;
  uint8_t element8_2;
  uint8_t element8_3;
  uint8_t unused383;
  uint8_t element8_4[2];
  uint8_t element8_5[2];
  uint8_t element8_7;
  uint8_t unused389;
  uint8_t element8_8[2];
  uint8_t element8_9[6];
  uint8_t element8_10[4];
  uint8_t element8_11;
  uint8_t element8_12;
  uint8_t element8_13;
  uint8_t element8_14;
  uint8_t element8_15;
  uint8_t unused407;
  uint8_t element9_0;
  uint8_t element9_1;
  uint8_t element9_2;
  uint8_t element9_3[52]; /* secret: never read from a device, enciphered when sent */
  uint8_t element9_5[64]; /* secret */
  uint8_t element9_6[4];
  uint8_t unused531;
  uint8_t element10_0[228]; /* u32 count (at most 32), then 6 bytes an entry */
  uint8_t element10_1;
  uint8_t unused761[3];
  uint8_t element10_2[24]; /* secret */
  uint8_t element10_3[24]; /* secret */
  uint8_t element14_0;
  uint8_t element14_1[56];
  uint8_t element14_2[14];
  uint8_t element14_3[64];
  uint8_t unused947;
  uint8_t element14_4[4];
} ConfigurationData;

/* Input of API_SetIPConfiguration, 16 bytes. Values are stored first octet first. */
typedef struct IpConfiguration {
  uint8_t value1[4];   /* element (1,0): the device's new IPv4 address */
  uint8_t value2[4];   /* element (1,1) */
  uint8_t value3[4];   /* element (1,2) */
  uint8_t addressMode; /* element (1,4): 1 or 2 */
  uint8_t unused[3];
} IpConfiguration;

/* Input of API_SetTest, 78 bytes. Fields are named after the elements that they are sent as; multi-byte values are
 * little-endian. */
typedef struct TestParameters {
  uint8_t element15_0;
  uint8_t element15_2;
  uint8_t element15_3;
  uint8_t element15_5;
  uint8_t element15_6;
  uint8_t element15_4;
  uint8_t element15_9[2];
  uint8_t element15_10[2];
  uint8_t element15_8[2];
  uint8_t element15_7;
  uint8_t element15_11[64];
  uint8_t unused;
} TestParameters;

/* The running test: counters that the device's reports update at any time, and the parameters last sent. */
typedef struct TestData {
  uint32_t counters[3];
  uint32_t unused;
  TestParameters parameters;
} TestData;

/* One row of a directory listing, 284 bytes. Rows follow the order of the directory; "." and ".." are rows too. */
typedef struct ListingEntry {
  uint32_t number;    /* 1 for the first row; 0 in the row after the last */
  char name[256];     /* the long name, or the 8.3 name of an entry without one */
  uint8_t attributes; /* 0x01 read-only, 0x02 hidden, 0x04 system, 0x10 directory, 0x20 archive */
  uint16_t second;    /* last write, 0 to 62, even */
  uint16_t minute;
  uint16_t hour;
  uint16_t day;
  uint16_t month;
  uint16_t year; /* 1980 to 2107 */
  uint32_t size; /* bytes */
  uint32_t firstCluster;
} ListingEntry;

typedef struct SearchResult {
  uint32_t deviceCount;
  DeviceEntry devices[MEDIA_ADAPTER_MAX_DEVICES]; /* rows from deviceCount on hold left-overs */
} SearchResult;

typedef struct StatusResult {
  uint32_t status;
  char message[MEDIA_ADAPTER_MESSAGE_SIZE];
} StatusResult;

typedef struct ConfigurationResult {
  uint32_t status;
  char message[MEDIA_ADAPTER_MESSAGE_SIZE];
  ConfigurationData configuration;
} ConfigurationResult;

typedef struct ReadDataResult {
  uint32_t status;
  char message[MEDIA_ADAPTER_MESSAGE_SIZE];
  uint32_t entryCount; /* changed, like `entries`, only by a call that lists a directory */
  ListingEntry entries[MEDIA_ADAPTER_MAX_LISTING + 1];
} ReadDataResult;

typedef struct TestResult {
  uint32_t status;
  char message[MEDIA_ADAPTER_MESSAGE_SIZE];
  const TestData* testData; /* null until the first test request that passed its checks */
} TestResult;

/*
 * Finds the devices on the network: listens for six seconds and lists each device once, at most 40.
 *
 * filter: null searches nothing and lists nothing; "" keeps every device; any other text keeps the devices of exactly
 * that name (case matters, at most 16 characters can match).
 *
 * The position of a device in `devices` is the device index of every later call, until the next search. A call that
 * gives up after 60 seconds sets deviceCount to 0.
 */
MEDIA_ADAPTER_EXPORT const SearchResult* MEDIA_ADAPTER_CALL API_Search(const char* filter);

/*
 * Reads settings into the library's image of them and returns a copy of the whole image, also after a failure of the
 * device. Fields that the device's answer does not carry keep what they held.
 *
 * elements, elementCount: at most 750 names, MEDIA_ADAPTER_ELEMENT(class, index) each; null only with a count of 0.
 * requestTag: 0 to 3, repeated by the device; only its two low bits count. password: at most 16 characters.
 *
 * Status: 0; 1 (null list with a count above 0) or 4 (list too long), nothing sent; 253, 254, 255; or the device's.
 * After 254 and 255 `configuration` is not touched.
 */
MEDIA_ADAPTER_EXPORT const ConfigurationResult* MEDIA_ADAPTER_CALL API_GetConfiguration(
    const uint16_t* elements, uint32_t elementCount, uint32_t requestTag, const char* password, uint32_t deviceIndex);

/*
 * Sets a device's IP configuration by broadcast. The device is known by its hardware address, the answer is awaited
 * from its present IP address. The list of the last search is not changed: search again to reach the new address.
 *
 * Status: 0; 1 (null configuration), nothing sent; 253, 254, 255; or the device's.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_SetIPConfiguration(const IpConfiguration* configuration,
                                                                                   uint32_t requestTag,
                                                                                   const char* password,
                                                                                   uint32_t deviceIndex);

/*
 * Writes the named settings from `configuration`, which also becomes the library's image of the settings. Names of
 * elements that cannot be written are skipped. The secret elements (9,3), (9,5), (10,2) and (10,3) travel enciphered
 * under the password and need one that is not empty.
 *
 * Status: 0; 1 (null record, null list with a count above 0, or an element (10,0) with a count above 32), 3 (secret
 * element with an empty password) or 4 (more than 1500 bytes to send), each with nothing sent; 253, 254, 255; or the
 * device's, for example 1 or 2 for a value or element that it refuses.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL
API_SetConfiguration(const uint16_t* elements, uint32_t elementCount, const ConfigurationData* configuration,
                     uint32_t requestTag, const char* password, uint32_t deviceIndex);

/*
 * Starts a device's test. The result's testData points to the library's one TestData, whose counters the device's
 * reports update from then on, between calls as well.
 *
 * Status: 0; 1 (null parameters), nothing sent; 253, 254, 255; or the device's.
 */
MEDIA_ADAPTER_EXPORT const TestResult* MEDIA_ADAPTER_CALL API_SetTest(const TestParameters* parameters,
                                                                      uint32_t requestTag, const char* password,
                                                                      uint32_t deviceIndex);

/*
 * Opens access to the device's storage. The file functions below do this themselves; call it to test a password or
 * whether there is storage at all.
 *
 * Status: 0; 250 (sectors of other than 512 bytes); 253, 254, 255; or the device's.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFAConnect(uint32_t requestTag, const char* password,
                                                                           uint32_t deviceIndex);

/*
 * Lists a directory or copies a file from the device.
 *
 * devicePath: 1 to 259 characters. A directory fills `entries` and `entryCount`, at most 511 rows. A file is copied
 * into localFolder under the path's last component as it is spelled there; an existing file is replaced.
 * localFolder: 1 to 259 characters, needed for a file only. One trailing separator is removed from the caller's own
 * text, so it must be writable when it ends in one.
 *
 * Status: 0; 242 (more than 511 entries); 243 (a path, or folder and name together, too long or empty); 244 (no such
 * entry, a local file that cannot be created or written, or a name that is no plain local name); the statuses of the
 * mount (245 to 248) and of sector access (249 to 253; 253 also when nothing new has come in for 60 seconds); 254, 255;
 * or the device's. After a failure while the file comes in, the part that came stays in the local file.
 */
MEDIA_ADAPTER_EXPORT const ReadDataResult* MEDIA_ADAPTER_CALL API_RFAReadData(const char* devicePath, char* localFolder,
                                                                              uint32_t requestTag, const char* password,
                                                                              uint32_t deviceIndex);

/*
 * Like API_RFAReadData, with progress: *progress goes from 0 to 100 (percent) while a file comes in. It is written by
 * the worker thread with plain 32-bit stores, and must stay valid until the read has really ended, even if the call
 * gave up before. It may be null.
 */
MEDIA_ADAPTER_EXPORT const ReadDataResult* MEDIA_ADAPTER_CALL API_RFAReadDataExt(const char* devicePath,
                                                                                 char* localFolder, uint32_t requestTag,
                                                                                 const char* password,
                                                                                 uint32_t deviceIndex,
                                                                                 uint32_t* progress);

/*
 * Deletes a file; directories are never deleted.
 *
 * Status: 0; 241 (a directory); 243; 244 (no such file); 245 to 255; or the device's. A failure on the way leaves the
 * file's entries deleted and its space partly in use; nothing is rolled back.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFADelete(const char* devicePath, uint32_t requestTag,
                                                                          const char* password, uint32_t deviceIndex);

/*
 * Copies a local file into a directory of the device under its own name; a file of that name is overwritten.
 *
 * localPath: 1 to 259 characters, a regular file of at most 4 GiB - 1. deviceFolder: 1 to 259 characters; one trailing
 * backslash is removed from the caller's own text, so it must be writable when it ends in one.
 *
 * Status: 0; 238, 239 (no room for the name); 240 (a directory has that name); 243; 244 (no such local file or device
 * folder, or a name that the volume cannot hold); 249 (volume full, or file too large); 245 to 255; or the device's.
 * Nothing is rolled back: a failed overwrite leaves the old entry with its space already free, for the next file to
 * use. Delete such a file before anything else is written.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFAWriteData(const char* localPath, char* deviceFolder,
                                                                             uint32_t requestTag, const char* password,
                                                                             uint32_t deviceIndex);

/*
 * Removes everything from the device's volume: clears its first allocation table and its root directory. The volume's
 * layout and type stay.
 *
 * Status: 0; 251 (the volume holds no cluster), nothing written; 245 to 255; or the device's. After a failure the
 * volume is partly cleared: clear it again before anything else is done with it.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFAFormat(uint32_t requestTag, const char* password,
                                                                          uint32_t deviceIndex);

/*
 * Creates an empty directory; its parent must exist. Spaces around the new name are removed.
 *
 * Status: 0; 236 (name in use); 238, 239 (no room for the name); 243; 244 (no such parent, or a name that is empty,
 * "." or "..", or holds a control character, a byte above 0x7F or one of \ / : * ? " < > |); 249 (volume full); 245 to
 * 255; or the device's. Nothing is rolled back: a failure after the checks may leave a folder that is no good. Store
 * nothing in it.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFACreateDirectory(const char* devicePath,
                                                                                   uint32_t requestTag,
                                                                                   const char* password,
                                                                                   uint32_t deviceIndex);

/*
 * Closes access to the device's storage. No other function does.
 *
 * Status: 0; 253, 254, 255; or the device's.
 */
MEDIA_ADAPTER_EXPORT const StatusResult* MEDIA_ADAPTER_CALL API_RFADisconnect(uint32_t requestTag, const char* password,
                                                                              uint32_t deviceIndex);

/* Does nothing; kept for applications that call it. The argument is ignored. */
MEDIA_ADAPTER_EXPORT void MEDIA_ADAPTER_CALL API_Terminate(uint32_t unused);

/*
 * Binds the library to the local interface that has this IPv4 address (dotted text), or to any with "". A new socket
 * takes a new port; an address that is bound already changes nothing.
 *
 * Returns 0; 10 (null, or not four numbers of 0 to 255), nothing changed; 11 (the address cannot be bound; no socket
 * until a later call succeeds); 253 (no answer within 60 seconds).
 */
MEDIA_ADAPTER_EXPORT uint32_t MEDIA_ADAPTER_CALL API_SetIpInterface(const char* address);

#ifdef __cplusplus
}
#endif

#endif /* MEDIA_ADAPTER_H */
