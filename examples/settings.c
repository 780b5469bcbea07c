/*
 * settings: changes one setting of a device, (8,0), and reads it back.
 *
 *   settings INTERFACE-ADDRESS DEVICE-NAME [NEW-VALUE]
 *
 * Without NEW-VALUE the setting is printed only. The device's password is the first line of standard input; an empty
 * line, or none, is the empty password. INTERFACE-ADDRESS is the local address to search from; "" is any.
 *
 * Exit status: 0; 1 when a request failed or the device did not take the value; 2 for wrong usage.
 */
#include <media_adapter.h>
#include <stdio.h>
#include <string.h>

static const uint16_t kElement = MEDIA_ADAPTER_ELEMENT(8, 0);

static int Fail(const char* what, const char* message, uint32_t status) {
  fprintf(stderr, "%s failed: %s (%u)\n", what, message, (unsigned)status);
  return 1;
}

/* A text is zero-padded and has no terminator when it fills its field; it comes from the network. */
static void Print(const char* label, const uint8_t* text, size_t width) {
  printf("%s: ", label);
  for (size_t i = 0; i < width && text[i] != 0; ++i) putchar(text[i] >= ' ' && text[i] < 0x7F ? text[i] : '?');
  putchar('\n');
}

/* The library's record belongs to the next call: what is needed of it is copied. */
static int Read(const char* password, ConfigurationData* settings) {
  const ConfigurationResult* result = API_GetConfiguration(&kElement, 1, 0, password, 0);
  if (result->status != MEDIA_ADAPTER_OK) return Fail("Reading", result->message, result->status);
  *settings = result->configuration;
  return 0;
}

static int Change(const char* password, const char* value) {
  ConfigurationData settings, after;
  if (Read(password, &settings) != 0) return 1;
  Print("before", settings.element8_0, sizeof settings.element8_0);
  if (value == NULL) return 0;

  /* Only the elements of the list are sent, whatever else the record holds. */
  memset(settings.element8_0, 0, sizeof settings.element8_0);
  memcpy(settings.element8_0, value, strlen(value));
  const StatusResult* written = API_SetConfiguration(&kElement, 1, &settings, 0, password, 0);
  if (written->status != MEDIA_ADAPTER_OK) return Fail("Writing", written->message, written->status);

  if (Read(password, &after) != 0) return 1;
  Print("after", after.element8_0, sizeof after.element8_0);
  return memcmp(after.element8_0, settings.element8_0, sizeof after.element8_0) != 0;
}

int main(int argc, char** argv) {
  const char* const value = argc > 3 ? argv[3] : NULL;
  if (argc < 3 || argc > 4 || (value != NULL && strlen(value) > sizeof((ConfigurationData*)0)->element8_0)) {
    fprintf(stderr, "usage: settings INTERFACE-ADDRESS DEVICE-NAME [NEW-VALUE]; a value has at most 32 bytes\n");
    return 2;
  }
  char password[256]; /* longer than any password: one that is too long is the library's to refuse */
  if (fgets(password, sizeof password, stdin) == NULL) password[0] = '\0';
  password[strcspn(password, "\r\n")] = '\0';

  if (API_SetIpInterface(argv[1]) != MEDIA_ADAPTER_OK) {
    fprintf(stderr, "%s is no address of this machine.\n", argv[1]);
    return 1;
  }
  if (API_Search(argv[2])->deviceCount != 1) { /* takes six seconds; the device's index is then 0 */
    fprintf(stderr, "Not exactly one device of that name was found.\n");
    return 1;
  }
  return Change(password, value);
}
