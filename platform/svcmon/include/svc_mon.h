// Service monitor: the states of named services as the system's service
// manager ("init") reports them. Handlers run on the monitor's own thread.
// On a PC each state is a small text file in the directory named by
// DVR_SVC_DIR (default "/tmp/dvr_svc"), written by whoever plays the service
// manager (tools/svcctl); SvcStateDir.h gives the reading rule. Every function
// returning int gives SVC_MON_NOERROR on success and -1 on failure (logged).
#ifndef SVC_MON_H
#define SVC_MON_H

#ifdef __cplusplus
extern "C" {
#endif

#define SVC_MON_NOERROR 0
// The system's service manager, the one reporter of service states.
#define SVC_MON_INIT_NAME "init"
// Longest state text including its terminator; state_get writes at most this.
#define SVC_MON_STATE_MAX 32

typedef struct svc_mon *svc_mon_handle_t;
typedef struct svc_mon_notify *svc_mon_notify_handle_t;

// One changed service: key is its name, value its new state ("running", ...).
typedef struct {
    const char *key;
    const char *value;
} svc_state_t;

// Called with the reporting service manager's name, the changed states, their
// count and the context given to svc_mon_notify_add. The array and its texts
// live until the callback returns.
typedef void (*svc_mon_callback_t)(const char *svc_name, const svc_state_t *state_data, int count,
                                   void *context);

// Null when the state directory cannot be created or watched.
svc_mon_handle_t svc_mon_create(void);
// Stops the thread and frees the handle and its handlers. Not from a handler.
void svc_mon_destroy(svc_mon_handle_t handle);
// Starts the monitor's thread. States present now are the baseline: only later
// changes are reported. Not from a handler.
int svc_mon_notify_start(svc_mon_handle_t handle);
// Returns when the thread has ended and no handler runs. Not from a handler.
int svc_mon_notify_stop(svc_mon_handle_t handle);
// Registers callback for changes reported by svc_name ("init" is the only
// reporter); null on failure. Any thread, before or after start.
svc_mon_notify_handle_t svc_mon_notify_add(svc_mon_handle_t handle, const char *svc_name,
                                           svc_mon_callback_t callback, void *context);
// Any thread. Elsewhere than in a handler it returns only when no handler is
// running, so the context may be freed at once; never call it holding a lock
// the handler takes.
int svc_mon_notify_rm(svc_mon_handle_t handle, svc_mon_notify_handle_t notify);
// Current state of service key under svc_name into value (SVC_MON_STATE_MAX
// bytes); SVC_MON_NOERROR on success. Any thread.
int svc_mon_state_get(svc_mon_handle_t handle, const char *svc_name, const char *key, char *value);

// (Re)starts the named service and returns when its state reads "running"
// (on a PC: writes "running" and reads it back, giving up after 5 seconds).
int startServiceAndWait(const char *name);

#ifdef __cplusplus
}
#endif

#endif  // SVC_MON_H
