#!/usr/bin/env python3
"""list_folder: lists a folder of a device's volume, by ctypes and without any binding.

    list_folder.py INTERFACE-ADDRESS DEVICE-NAME [DEVICE-PATH]

The device's password is the first line of standard input; an empty line, or none, is the empty password.
INTERFACE-ADDRESS is the local address to search from; "" is any. DEVICE-PATH has backslashes, as in '\\music\\live'.
The library is looked for where the system looks for libraries, as in LD_LIBRARY_PATH.

Exit status: 0; 1 when the library or the device refused; 2 for wrong usage.
"""
import ctypes
import sys
from ctypes import POINTER, Structure, c_char, c_char_p, c_uint8, c_uint16, c_uint32

DIRECTORY = 0x10


# The records of media_adapter.h, as far as they are used.
class DeviceEntry(Structure):
    _fields_ = [("bytes", c_uint8 * 82)]


class SearchResult(Structure):
    _fields_ = [("deviceCount", c_uint32), ("devices", DeviceEntry * 40)]


class ListingEntry(Structure):
    _fields_ = [
        ("number", c_uint32),
        ("name", c_char * 256),
        ("attributes", c_uint8),
        ("second", c_uint16),
        ("minute", c_uint16),
        ("hour", c_uint16),
        ("day", c_uint16),
        ("month", c_uint16),
        ("year", c_uint16),
        ("size", c_uint32),
        ("firstCluster", c_uint32),
    ]


class ReadDataResult(Structure):
    _fields_ = [
        ("status", c_uint32),
        ("message", c_char * 60),
        ("entryCount", c_uint32),
        ("entries", ListingEntry * 512),
    ]


def load():
    library = ctypes.CDLL("mediaadapter.dll" if sys.platform == "win32" else "libmediaadapter.so.1")
    library.API_SetIpInterface.argtypes = [c_char_p]
    library.API_SetIpInterface.restype = c_uint32
    library.API_Search.argtypes = [c_char_p]
    library.API_Search.restype = POINTER(SearchResult)
    library.API_RFAReadData.argtypes = [c_char_p, c_char_p, c_uint32, c_char_p, c_uint32]
    library.API_RFAReadData.restype = POINTER(ReadDataResult)
    return library


def main(arguments):
    if len(arguments) not in (2, 3):
        print("usage: list_folder.py INTERFACE-ADDRESS DEVICE-NAME [DEVICE-PATH]", file=sys.stderr)
        return 2
    path = arguments[2] if len(arguments) > 2 else "\\"
    password = sys.stdin.buffer.readline().rstrip(b"\r\n")

    library = load()
    if library.API_SetIpInterface(arguments[0].encode()) != 0:
        sys.exit(f"{arguments[0]} is no address of this machine.")
    # Takes six seconds; the index of the only device is then 0.
    if library.API_Search(arguments[1].encode("latin-1")).contents.deviceCount != 1:
        sys.exit("Not exactly one device of that name was found.")
    # A byte of a name is the character of the same number. A folder needs no local folder.
    result = library.API_RFAReadData(path.encode("latin-1"), None, 0, password, 0).contents
    if result.status != 0:
        sys.exit(f"Listing failed: {result.message.decode()} ({result.status})")
    for entry in result.entries[: result.entryCount]:
        time = f"{entry.year}-{entry.month:02}-{entry.day:02} {entry.hour:02}:{entry.minute:02}"
        size = "folder" if entry.attributes & DIRECTORY else entry.size
        name = entry.name.decode("latin-1")
        print(f"{size:>10}  {time}  {name if name.isprintable() else ascii(name)}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
