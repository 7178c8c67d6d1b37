/* The public interface of the Zephane library: nine functions that carry JSON text.
 *
 * Text. All text is UTF-8 and ends in a NUL. A request is a JSON object. A reply is compact JSON
 * with sorted keys: the result or, after a failure, an object whose only member is "error", the
 * reason in words. A text that a function returns belongs to the caller, who gives it back with
 * zp_string_free(). A function that cannot find memory for its text returns null.
 *
 * Threads. The first call of zp_initialize() makes its thread the main thread. zp_initialize() and
 * the zp_ui functions belong to the main thread. The zp_engine functions may be called on any
 * thread; calls on one engine run one after another. zp_initialize() must not overlap any call.
 *
 * No function lets an exception out.
 */
#ifndef ZEPHANE_H
#define ZEPHANE_H

#if defined(_WIN32) && defined(zephane_EXPORTS)
#define ZEPHANE_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ZEPHANE_EXPORT __declspec(dllimport)
#else
#define ZEPHANE_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zp_engine zp_engine;
typedef struct zp_ui zp_ui;

/* Chooses the device for the whole process and describes the system and the default configuration.
 * The environment variable ZEPHANE_DEVICE names a device by its index; without it the first is
 * taken. May be called again on the main thread; engines created earlier must be destroyed before
 * that if the device is to change. */
ZEPHANE_EXPORT char* zp_initialize(void);

/* Frees a text of this library. Null is allowed. */
ZEPHANE_EXPORT void zp_string_free(char* text);

/* Creates an engine from a configuration and, under its key "initial", the path of a starting
 * field. Returns null on failure and then, unless `error` is null, stores the reason in `*error`:
 * plain text that the caller frees with zp_string_free(). On success `*error` is left alone. Works
 * before zp_initialize(), on device 0. */
ZEPHANE_EXPORT zp_engine* zp_engine_create(const char* configuration, char** error);

/* Runs the operation that the request names under "op": "inspect", "advance", "set", "reset" or
 * "export". Blocks until it is done. A null engine is answered with an error, and a failed call
 * leaves the engine usable. */
ZEPHANE_EXPORT char* zp_engine_call(zp_engine* engine, const char* request);

/* Ends an engine, which no thread may be calling or call again. Null is allowed. */
ZEPHANE_EXPORT void zp_engine_destroy(zp_engine* engine);

/* Creates an interactive view. Returns null on failure and on any thread but the main thread. */
ZEPHANE_EXPORT zp_ui* zp_ui_create(void);

/* Puts the view into a window of the host's, once: its HWND on Windows, its X11 window id in the
 * pointer's value on Linux. Answers {}. */
ZEPHANE_EXPORT char* zp_ui_attach(zp_ui* ui, void* parent);

/* Runs the operation that the request names under "op" and answers with the view's status. */
ZEPHANE_EXPORT char* zp_ui_call(zp_ui* ui, const char* request);

/* Ends a view. Does nothing for null and on any thread but the main thread. */
ZEPHANE_EXPORT void zp_ui_destroy(zp_ui* ui);

#ifdef __cplusplus
}
#endif

#endif
