/* The least that a host does: loads the plug-in, lends it its threads, runs ./curl for it, sends it one
   event and waits for what becomes of it. docs/host-interface.md tells the rest; records are written as
   words here, so that the offsets of its tables can be seen (byte offset = 4 * index).

     gcc -m32 -o sample_host sample_host.c -ldl -pthread
     ./sample_host /usr/lib/notifypi/notifypi.so event.xml

   in a folder with notify.xml and curl, as with: ln -s /usr/bin/curl curl */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

typedef int (*Export)(void *request, void *result);
enum { MODULE = 0xC0000, LOG = 64, STATUS = 4, CHANNEL = 8192 };
enum { INPUT = 0, OUTPUT = 1, RUNNING = 3, FAILED = 4, FINISHED = 5, LAUNCH = 6 };

static void *plugin;
static volatile int reported;
static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static struct { uint32_t request; int input; } running; /* one program at a time runs for the plug-in */

static void call(const char *name, uint32_t *request, uint32_t *result) {
  Export export = (Export)dlsym(plugin, name);
  if (export == NULL || export(request, result) != 0) exit(2);
}

static void control(uint32_t code, const void *payload, uint32_t length) {
  uint32_t request[7] = {[2] = code, [5] = length, [6] = (uint32_t)payload}, result[4];
  call("IOCTL", request, result);
}

static void report(uint32_t request, uint32_t kind, uint32_t word, const char *bytes, uint32_t length) {
  uint32_t chunk[4 + 1024] = {16 + length, request, kind, word};
  memcpy(chunk + 4, bytes, length);
  control(4, chunk, 16 + length);
}

/* Never on the thread that handles the launch: the plug-in holds a lock there. */
static void *run_program(void *launch) {
  uint32_t *chunk = launch, request = chunk[1], length = chunk[0] - 16;
  char *arguments[256] = {0}, bytes[4096], *text = (char *)(chunk + 4);
  int count = 0, input[2], output[2], status;
  for (char *at = text; at <= text + length && count < 255; at += strlen(at) + 1) arguments[count++] = at;
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) exit(2);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(input[0], 0);
    dup2(output[1], 1);
    execv(arguments[0], arguments);
    _exit(127);
  }
  close(input[0]);
  close(output[1]);
  pthread_mutex_lock(&mutex);
  running.request = request;
  running.input = input[1];
  pthread_mutex_unlock(&mutex);
  report(request, pid < 0 ? FAILED : RUNNING, 0, "", 0);
  for (ssize_t size; pid > 0 && (size = read(output[0], bytes, sizeof(bytes))) > 0;)
    report(request, OUTPUT, 0, bytes, (uint32_t)size);
  close(output[0]);
  pthread_mutex_lock(&mutex);
  if (running.input >= 0) close(running.input);
  running.input = -1;
  pthread_mutex_unlock(&mutex);
  if (pid > 0 && waitpid(pid, &status, 0) == pid) report(request, FINISHED, (uint32_t)status, "", 0);
  free(chunk);
  return NULL;
}

static void take_input(const uint32_t *chunk) {
  pthread_mutex_lock(&mutex);
  if (chunk[1] == running.request && running.input >= 0) {
    if (write(running.input, chunk + 4, chunk[0] - 16) < 0) perror("input");
    if (chunk[0] < 65536) { /* the last chunk */
      close(running.input);
      running.input = -1;
    }
  }
  pthread_mutex_unlock(&mutex);
}

/* The host service entry. Comes from any thread of the plug-in. */
static int entry(uint32_t *request, uint32_t *reply) {
  const char *payload = (const char *)request[3];
  if (request[6] == LOG) printf("log %u: %s\n", request[10], payload);
  if (request[6] == STATUS) {
    printf("status: %.*s\n", (int)request[2], payload);
    reported = 1;
  }
  if (request[6] == CHANNEL) { /* the chunk is ours now, from malloc */
    uint32_t *chunk = (uint32_t *)payload;
    pthread_t thread;
    if (chunk[2] == LAUNCH) {
      chunk = realloc(chunk, chunk[0] + 1);
      ((char *)chunk)[chunk[0]] = '\0'; /* behind the last argument */
      pthread_create(&thread, NULL, run_program, chunk);
      pthread_detach(thread);
    } else {
      take_input(chunk);
      free(chunk);
    }
  }
  fflush(stdout);
  reply[2] = 0;
  return 0;
}

static void *worker(void *unused) {
  control(1, NULL, 0);
  return unused;
}

static void *watchdog(void *unused) {
  uint32_t request[4] = {[3] = 1}, result[5];
  call("Read", request, result);
  return unused;
}

int main(int count, char **arguments) {
  static char event[1 << 20];
  uint32_t none[15] = {0}, load[4] = {[3] = (uint32_t)entry}, result[16];
  pthread_t threads[2];
  signal(SIGPIPE, SIG_IGN); /* a program may end before it has read its input */
  FILE *file = count == 3 ? fopen(arguments[2], "r") : NULL;
  plugin = count == 3 ? dlopen(arguments[1], RTLD_NOW) : NULL;
  if (file == NULL || plugin == NULL) {
    fprintf(stderr, "usage: sample_host PLUGIN EVENT\n");
    return 2;
  }
  uint32_t length = (uint32_t)fread(event, 1, sizeof(event), file);
  fclose(file);
  call("Load", load, result);
  call("Open", none, result);
  pthread_create(&threads[0], NULL, worker, NULL);
  pthread_create(&threads[1], NULL, watchdog, NULL);
  uint32_t write_event[15] = {[4] = (uint32_t)event, [5] = length};
  call("Write", write_event, result);
  for (int second = 0; second < 90 && !reported; ++second) {
    uint32_t tick[15] = {[6] = MODULE, [8] = 32};
    sleep(1);
    call("Write", tick, result);
  }
  call("Close", none, result);
  pthread_join(threads[0], NULL);
  pthread_join(threads[1], NULL);
  call("Unload", none, result);
  dlclose(plugin);
  return reported ? 0 : 1;
}
