/*
 * copy_large: copies one file from a device or to it, however long that takes, and shows how far it is.
 *
 *   copy_large get INTERFACE-ADDRESS DEVICE-NAME DEVICE-PATH LOCAL-FOLDER
 *   copy_large put INTERFACE-ADDRESS DEVICE-NAME LOCAL-PATH DEVICE-FOLDER
 *
 *   copy_large get 192.168.1.5 lounge '\music\song.mp3' .
 *
 * The device's password is the first line of standard input; an empty line, or none, is the empty password.
 * INTERFACE-ADDRESS is the local address to search from; "" is any.
 *
 * A call of the library gives up after 60 seconds, while its request goes on. A program that takes the status of such a
 * call for the outcome reports a healthy copy as failed. Copy below shows what to do instead.
 *
 * Exit status: 0 when the file was copied; 1 when not; 2 for wrong usage.
 */
#define _POSIX_C_SOURCE 200809L /* nanosleep, clock_gettime */

#include <media_adapter.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

enum { LONG_CALL_SECONDS = 50 }; /* a call that took less did not give up */

static struct {
  int isGet;
  const char* interfaceAddress;
  char* from;
  char* to; /* may lose a trailing separator, so no literal */
  const char* password;
  uint32_t deviceIndex;

  uint32_t progress; /* percent, written by the library's worker until the request has ended: never on a stack */
  uint32_t status;
  char message[MEDIA_ADAPTER_MESSAGE_SIZE];
  atomic_int isDone; /* status and message hold the outcome */
} copy;

static double Seconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

/*
 * Requests run one after another, so one that changes nothing ends only after the one that is running. It may itself
 * give up, and then never runs. No other call may come in between: it could be the next to use the record.
 */
static void WaitForRunningRequest(void) {
  while (API_SetIpInterface(copy.interfaceAddress) == MEDIA_ADAPTER_NO_RESPONSE) {
  }
}

/* The thread that calls. Both records begin with status and message; neither moves. */
static void* Copy(void* unused) {
  const double start = Seconds();
  const uint32_t* status;
  const char* message;
  if (copy.isGet) {
    const ReadDataResult* result =
        API_RFAReadDataExt(copy.from, copy.to, 0, copy.password, copy.deviceIndex, &copy.progress);
    status = &result->status;
    message = result->message;
  } else {
    const StatusResult* result = API_RFAWriteData(copy.from, copy.to, 0, copy.password, copy.deviceIndex);
    status = &result->status;
    message = result->message;
  }
  if (Seconds() - start >= LONG_CALL_SECONDS) {
    fprintf(stderr, "\nAfter %.0f s the call returned %u; waiting for its request to end.\n", Seconds() - start,
            (unsigned)*status);
    WaitForRunningRequest();
  }
  copy.status = *status;
  memcpy(copy.message, message, sizeof copy.message);
  atomic_store(&copy.isDone, 1);
  return unused;
}

/* The thread that shows: the library tells how far a read is, of a write only the time is known. */
static void ShowUntilDone(void) {
  const struct timespec tenth = {0, 100000000};
  const double start = Seconds();
  unsigned shown = 1000;
  for (int isDone = 0; !isDone; nanosleep(&tenth, NULL)) {
    isDone = atomic_load(&copy.isDone);
    const unsigned now = copy.isGet ? __atomic_load_n(&copy.progress, __ATOMIC_RELAXED) : (unsigned)(Seconds() - start);
    if (now != shown) fprintf(stderr, "\r%3u %s ", now, copy.isGet ? "%" : "s");
    shown = now;
  }
  fprintf(stderr, "\n");
}

static int IsUsed(int argc, char** argv) {
  return argc == 6 && (strcmp(argv[1], "get") == 0 || strcmp(argv[1], "put") == 0);
}

int main(int argc, char** argv) {
  if (!IsUsed(argc, argv)) {
    fprintf(stderr,
            "usage: copy_large get INTERFACE-ADDRESS DEVICE-NAME DEVICE-PATH LOCAL-FOLDER\n"
            "       copy_large put INTERFACE-ADDRESS DEVICE-NAME LOCAL-PATH DEVICE-FOLDER\n");
    return 2;
  }
  copy.isGet = argv[1][0] == 'g';
  copy.interfaceAddress = argv[2];
  copy.from = argv[4];
  copy.to = argv[5];
  static char password[256]; /* longer than any password: one that is too long is the library's to refuse */
  if (fgets(password, sizeof password, stdin) == NULL) password[0] = '\0';
  password[strcspn(password, "\r\n")] = '\0';
  copy.password = password;

  if (API_SetIpInterface(copy.interfaceAddress) != MEDIA_ADAPTER_OK) {
    fprintf(stderr, "%s is no address of this machine.\n", copy.interfaceAddress);
    return 1;
  }
  if (API_Search(argv[3])->deviceCount != 1) { /* takes six seconds; the device's index is then 0 */
    fprintf(stderr, "Not exactly one device of that name was found.\n");
    return 1;
  }
  pthread_t thread;
  if (pthread_create(&thread, NULL, Copy, NULL) != 0) {
    fprintf(stderr, "No thread.\n");
    return 1;
  }
  ShowUntilDone();
  pthread_join(thread, NULL);
  if (copy.status != MEDIA_ADAPTER_OK) {
    fprintf(stderr, "The copy failed: %s (%u)\n", copy.message, (unsigned)copy.status);
    return 1;
  }
  return 0;
}
