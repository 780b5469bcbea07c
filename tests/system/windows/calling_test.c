/* Compiled for another calling convention where there is one, and linked by the import library for Microsoft's linker:
 * the exports are called in theirs. A call that leaves the stack elsewhere would show after so many. */
#include <media_adapter.h>

int __cdecl main(void) {
  for (int i = 0; i < 1000000; ++i) API_Terminate(7);
  if (API_SetIpInterface("1.2.3") != MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS) return 1;
  for (int i = 0; i < 1000; ++i) {
    if (API_RFAConnect(1, "", 40)->status != MEDIA_ADAPTER_DEVICE_NOT_FOUND) return 2;
    if (API_RFAReadDataExt("\\", 0, 1, "", 40, 0)->status != MEDIA_ADAPTER_DEVICE_NOT_FOUND) return 3;
  }
  return 0;
}
