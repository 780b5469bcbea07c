/*
 * search_and_read: finds the media adapters on the local network, reads two settings of the first one and prints them.
 *
 *   search_and_read [INTERFACE-ADDRESS [DEVICE-NAME]]
 *
 * The device's password is the first line of standard input; an empty line, or none, is the empty password.
 * INTERFACE-ADDRESS is the local address to search from: 127.0.0.1 reaches simulated devices on this machine. With
 * DEVICE-NAME only devices of exactly that name are found.
 *
 * Exit status: 0; 1 when no device was found or the device or the library refused; 2 for wrong usage.
 */
#include <media_adapter.h>
#include <stdio.h>
#include <string.h>

/* Texts are raw bytes from the network: without terminator when they fill their field, and not to be trusted. */
static void PrintText(const uint8_t* text, size_t width) {
  for (size_t i = 0; i < width && text[i] != 0; ++i) putchar(text[i] >= ' ' && text[i] < 0x7F ? text[i] : '?');
}

static void ReadPassword(char* password, int size) {
  if (fgets(password, size, stdin) == NULL) password[0] = '\0';
  password[strcspn(password, "\r\n")] = '\0';
}

static int ReadSettings(uint32_t deviceIndex, const char* password) {
  const uint16_t elements[] = {MEDIA_ADAPTER_ELEMENT(0, 2), MEDIA_ADAPTER_ELEMENT(8, 4)};
  const ConfigurationResult* result = API_GetConfiguration(elements, 2, 0, password, deviceIndex);
  if (result->status != MEDIA_ADAPTER_OK) {
    fprintf(stderr, "Reading the settings failed: %s (%u)\n", result->message, (unsigned)result->status);
    return 1;
  }
  const ConfigurationData* settings = &result->configuration;
  printf("(0,2) text: ");
  PrintText(settings->element0_2, sizeof settings->element0_2);
  printf("\n(8,4) number: %d\n", settings->element8_4[0] + 256 * settings->element8_4[1]);
  return 0;
}

int main(int argc, char** argv) {
  if (argc > 3) {
    fprintf(stderr, "usage: search_and_read [INTERFACE-ADDRESS [DEVICE-NAME]]\n");
    return 2;
  }
  if (argc > 1 && API_SetIpInterface(argv[1]) != MEDIA_ADAPTER_OK) {
    fprintf(stderr, "%s is no address of this machine.\n", argv[1]);
    return 1;
  }
  char password[256]; /* longer than any password: one that is too long is the library's to refuse */
  ReadPassword(password, sizeof password);

  const SearchResult* found = API_Search(argc > 2 ? argv[2] : ""); /* takes six seconds */
  if (found->deviceCount == 0) {
    fprintf(stderr, "No device was found.\n");
    return 1;
  }
  const uint8_t* address = found->devices[0].ipAddress;
  printf("%u found; the first is ", (unsigned)found->deviceCount);
  PrintText(found->devices[0].name, sizeof found->devices[0].name);
  printf(" at %u.%u.%u.%u\n", address[0], address[1], address[2], address[3]);
  return ReadSettings(0, password);
}
