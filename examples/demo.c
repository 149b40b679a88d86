// SPDX-License-Identifier: Apache-2.0
/*
 * ardel demo: plays a small inventory scan.  Four components trace from
 * their own threads at every level, with entry and exit marks, through the
 * configuration found via TYX_TEST (examples/config/TyxTrace.properties).
 * At the end it lists the trace files written and a few lines of each.
 * Then the usage monitor logs through the problem-determination chain:
 * every event as a trace line on the console, and the events that pass the
 * message-ID and level filters as XML records in demo-logs/use-trace.xml.
 * Last, a logger of the program's own name (<ardel/log.h>) logs at INFO,
 * WARN and ERROR to the console as basic lines.
 */
#include <ardel/CLogWrapper.h>
#include <ardel/log.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

typedef struct Component {
  const char* name;
  CLogWrapper* (*get)(void);
  const char* file;
} Component;

static const Component kComponents[] = {
    {"hardware scanner", getCLogHw, "demo-logs/hw-trace.log"},
    {"product-data collector", getCLogSw, "demo-logs/vpd-trace.log"},
    {"common services", getCLogCom, "demo-logs/common-trace.log"},
    {"network scanner", getCLogNet, "demo-logs/net-trace.log"},
};

static void scanItem(CLogWrapper* w, const char* who, int item) {
  ARDEL_TRACE_ENTRY(w, "item %d", item);
  ARDEL_TRACE_MAX(w, "%s: probing item %d (details)", who, item);
  if (item % 10 == 0) ARDEL_TRACE_MID(w, "%s: %d items so far", who, item);
  if (item % 50 == 0) ARDEL_TRACE_MIN(w, "%s: checkpoint at item %d, 100%% of batch", who, item);
  ARDEL_TRACE_EXIT(w, "item %d done", item);
}

static void* run(void* arg) {
  const Component* c = (const Component*)arg;
  CLogWrapper* w = c->get();
  for (int item = 1; item <= 200; item++) scanItem(w, c->name, item);
  return NULL;
}

static void showFile(const char* path) {
  FILE* f = fopen(path, "r");
  if (!f) {
    printf("  %s: not written\n", path);
    return;
  }
  struct stat st;
  stat(path, &st);
  printf("  %s (%lld bytes), first lines:\n", path, (long long)st.st_size);
  char line[512];
  for (int n = 0; n < 3 && fgets(line, sizeof line, f); n++) printf("    %s", line);
  fclose(f);
}

/* Texts that start with a message ID: the pd logger settles the ID, the
   message-ID filter drops the informational ones (*I) and holds back a
   warning repeated within 5 seconds. */
static void runUsageMonitor(void) {
  CLogWrapper* w = getCLogUse();
  printf("usage monitor, every event as a trace line on the console:\n");
  fflush(stdout);
  ARDEL_TRACE_ENTRY(w, "USEMN0001I metering %d products", 3);
  for (int i = 1; i <= 3; i++) ARDEL_TRACE_MID(w, "USEMN0002W quota for product %d at %d%% <limit & more>", i, 80 + i);
  ARDEL_TRACE_MIN(w, "USEMN0003E meter unreachable ]]> retry later");
  ARDEL_TRACE_MAX(w, "no message ID here");
  ARDEL_TRACE_EXIT(w, "USEMN0004I done");
  fflush(stdout);
  printf("XML records written (informational IDs, repeats and DEBUG_MAX filtered out):\n");
  FILE* f = fopen("demo-logs/use-trace.xml", "r");
  char line[512];
  while (f && fgets(line, sizeof line, f)) printf("    %s", line);
  if (f) fclose(f);
}

/* Any dotted name configured in the same file is a logger; statements
   below its level cost an inline test and evaluate no argument. */
static void runOwnLogger(int components) {
  ArdelLogger* log = ardel_getLogger("ardel_demo");
  printf("the program's own logger ardel_demo (INFO and above, basic line format):\n");
  fflush(stdout);
  ARDEL_INFO(log, "scan finished: %d components traced", components);
  ARDEL_WARN(log, "%d items skipped, see demo-logs/", 2);
  ARDEL_ERROR(log, "DEMOA0001E inventory upload failed: %s", "host unreachable");
  ARDEL_DEBUG_MIN(log, "not written: DEBUG_MIN is below the logger's level");
  ardel_releaseLogger(log);
}

int main(void) {
  mkdir("demo-logs", 0755);
  if (!getenv("TYX_TEST")) fprintf(stderr, "demo: TYX_TEST is not set; using the suite's ini file\n");
  printf("configuration: %d-character path settled by initializeWrapper\n", initializeWrapper(NULL));

  enum { N = sizeof kComponents / sizeof kComponents[0] };
  pthread_t threads[N];
  for (int i = 0; i < N; i++) pthread_create(&threads[i], NULL, run, (void*)&kComponents[i]);
  for (int i = 0; i < N; i++) pthread_join(threads[i], NULL);

  for (int i = 0; i < N; i++) {
    CLogWrapper* w = kComponents[i].get();
    printf("%s: trace level %d, active %d\n", kComponents[i].name, getTrcLevel(w), w ? w->active : 0);
  }
  printf("trace files written:\n");
  for (int i = 0; i < N; i++) {
    showFile(kComponents[i].file);
    char backup[256];
    snprintf(backup, sizeof backup, "%.*s1.log", (int)(strlen(kComponents[i].file) - 4), kComponents[i].file);
    struct stat st;
    if (stat(backup, &st) == 0) printf("  %s (%lld bytes, rolled over)\n", backup, (long long)st.st_size);
  }
  runUsageMonitor();
  runOwnLogger(N);
  return 0;
}
