/* The public header as a C11 program sees it: it compiles alone, and its records have the promised layouts. */
/* clang-format off: first of all, so that nothing else helps it */
#include "api/media_adapter.h"
/* clang-format on */

#include <assert.h>
#include <stddef.h>

#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #record "." #field)
#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)

SIZE(DeviceEntry, 82);
AT(DeviceEntry, element8_14, 16);
AT(DeviceEntry, element0_0, 17);
AT(DeviceEntry, element0_1, 33);
AT(DeviceEntry, element8_6, 37);
AT(DeviceEntry, element8_0, 38);
AT(DeviceEntry, element8_1, 70);
AT(DeviceEntry, ipAddress, 71);
AT(DeviceEntry, element9_0, 75);
AT(DeviceEntry, macAddress, 76);

SIZE(ConfigurationData, 952);
AT(ConfigurationData, element1_0, 36);
AT(ConfigurationData, element1_10, 53);
AT(ConfigurationData, element2_0, 56);
AT(ConfigurationData, element2_7, 136);
AT(ConfigurationData, element4_2, 260);
AT(ConfigurationData, element8_0, 348);
AT(ConfigurationData, element8_4, 384);
AT(ConfigurationData, element8_7, 388);
AT(ConfigurationData, element8_8, 390);
AT(ConfigurationData, element8_10, 398);
AT(ConfigurationData, element9_0, 408);
AT(ConfigurationData, element9_3, 411);
AT(ConfigurationData, element9_6, 527);
AT(ConfigurationData, element10_0, 532);
AT(ConfigurationData, element10_1, 760);
AT(ConfigurationData, element10_2, 764);
AT(ConfigurationData, element14_0, 812);
AT(ConfigurationData, element14_3, 883);
AT(ConfigurationData, element14_4, 948);

SIZE(IpConfiguration, 16);
AT(IpConfiguration, addressMode, 12);
SIZE(TestParameters, 78);
AT(TestParameters, element15_4, 5);
AT(TestParameters, element15_9, 6);
AT(TestParameters, element15_8, 10);
AT(TestParameters, element15_7, 12);
AT(TestParameters, element15_11, 13);
AT(TestData, parameters, 16);

SIZE(ListingEntry, 284);
AT(ListingEntry, name, 4);
AT(ListingEntry, attributes, 260);
AT(ListingEntry, second, 262);
AT(ListingEntry, year, 272);
AT(ListingEntry, size, 276);
AT(ListingEntry, firstCluster, 280);

SIZE(SearchResult, 4 + 40 * 82);
SIZE(StatusResult, 64);
SIZE(ConfigurationResult, 64 + 952);
SIZE(ReadDataResult, 68 + 512 * 284);
AT(ReadDataResult, entryCount, 64);
AT(TestResult, testData, 64);

const StatusResult* CallFromC(void);
const StatusResult* CallFromC(void) { return API_RFAConnect(0, "", 0xFFFFFFFFu); }
