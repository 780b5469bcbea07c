// The system's headers, in the one order and with the one set of switches that they need.
#pragma once

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX  // the standard library of some compilers has it already
#define NOMINMAX
#endif
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <mswsock.h>
#include <windows.h>
#include <iphlpapi.h>
// clang-format on
