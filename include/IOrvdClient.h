// liborvex2_0: offers the functions of a vendor service process through the ORVEX Manager.
//
// A service calls, on a thread of its own and in this order: orvd_svc_init; for each opcode
// _orvd_svc_register_auth and _orvd_svc_ready; then it waits. The library's receive thread calls
// the session-state callbacks; each task runs on a thread of its own. orvd_svc_deinit ends it.
//
// Results. 0 for success; -1 failed; -2 wrong service id or bad argument; -3 not initialised.
//
// Callbacks run on the receive thread, which alone delivers the Manager's answers. A callback must
// not call what waits for one: orvd_svc_init, _orvd_svc_register_auth, _orvd_svc_ready (they would
// never return) or a query (it would end by its time-out). The one exception is the event
// ORVD_RECONNECTED: its receive thread is about to end, so that callback may call orvd_svc_deinit
// and orvd_svc_init, and after these register and ready, other opcodes than those whose calls still
// wait for the lost Manager. orvd_status_t names the lock that is held
// during each event. Locks are not recursive: what takes the lock held must not be called, and
// orvd_svc_deinit and _orvd_svc_ready take the ready-table lock. A callback that is told of an
// event without a lock should return at once all the same: nothing is read meanwhile.
//
// Tasks may call everything, queries included, but orvd_svc_init, orvd_svc_deinit and, with their
// own arguments, ClearParamsFromQueues. A task does not end with its session: its answer is sent all
// the same.
//
// Waiting. orvd_svc_init, _orvd_svc_register_auth and _orvd_svc_ready wait for the Manager's answer
// without limit, also when the Manager goes away meanwhile. A service that cannot accept that
// limits the call by ending its process (alarm, a watchdog): exit is prompt while they wait. Every
// call that sends, orvd_svc_deinit included, waits while the Manager does not read and the socket's
// buffer is full; connecting waits while a Manager that does not accept has its queue full.
//
// Texts are never null unless said, end at their first NUL, and go into messages unescaped: a
// quotation mark in one makes a message that the Manager cannot read, and it may never answer.
// A message above the socket's send buffer (about 212 kB unless the system says otherwise) is not
// sent; the call fails like any failed send.
//
// The socket is the shared one on user builds. On debuggable builds the calling thread's name and
// the properties "vendor.orvex.one.service" and "vendor.orvex.one.plix" choose between it and the
// dedicated one; a reconnecting receive thread has inherited the name of the thread that
// initialised, so name that thread before and not after.
//
// Log. Every line goes to the Android log with a null tag. The property
// "persist.vendor.orvex.clientlib.debug_level" (default 4, read by orvd_svc_init) opens lines up to
// its level: 1 failures, 2 and 3 detail, 4 progress. docs/LOGS.md explains the lines.
//
// One client per process. The library's state outlives main: exit is safe at any time.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IOrvdClient_utility.h"
#include "orvd_types.h"
#include "orvex_args.h"

extern "C" {

// --- Lifecycle

// Connects to the Manager, starts the receive thread and obtains the service id.
//
// Returns the service id (0 or more); the id of the present initialisation when there is one; -1
// when the Manager cannot be reached, the thread not started or the request not sent; the negative
// id that a refusing Manager gave. After a negative id other than -1 the library counts as
// initialised under it.
// The request is not sent either when the Manager has closed the connection meanwhile. A later call
// may succeed.
// Waits without limit for the Manager's answer.
// Call it and orvd_svc_deinit from one thread at a time: a service thread, or an ORVD_RECONNECTED
// callback.
ORVD_EXPORT int orvd_svc_init(void);

// Says goodbye, closes the connection, and forgets the registered pairs, the ready opcodes and the
// service id. Ends a reconnection under way.
//
// Returns 0; -2 when the library is initialised under another id; -3 when it is not initialised.
// The receive thread ends at once, or after the message that it is working on; it says nothing more
// to the Manager. Running tasks go on; their answers go to whichever connection stands when they
// end, or fail to be sent. Open sessions are kept, and the Manager's next tasks for them run once
// their opcodes are ready again; but when the Manager has closed the connection and an opcode is
// ready, the sessions are removed without a callback.
// A registration or readiness that another thread is calling leaves no pair and no ready opcode
// behind. It returns -1; it waits without limit when its request was sent and the receive thread has
// not yet delivered the answer.
// When the Manager was lost and the present connection has not been initialised, nothing is sent
// and the connection stays for the next orvd_svc_init, unless this process is the dedicated client.
// Does not wait for the receive thread, but for a notification callback that is running; such a
// callback must not wait for it.
// May be called in an ORVD_TERMINATED or ORVD_RECONNECTED callback, in no other.
ORVD_EXPORT int orvd_svc_deinit(unsigned int svc_id);

// Writes `text` to the log as a marker, and sends it to the Manager when this process is the
// dedicated client and "vendor.orvex.one.markers" was true at connection. Any thread.
ORVD_EXPORT void orvd_log_marker(const char* text);

// --- Registration

// Registers `opcode` with its API definition. On success every subsystem that the definition lists
// is supported for the opcode.
//
// `api_def`: the seven bytes "\x01" "ORVEX" "\x01" (may be left out), the version byte 2, then JSON
// text: an object with an object "Orvex", holding "opcode" (hexadecimal text) and "subsystems" (a
// list of objects with an "id"). Null counts as missing. The JSON travels to the Manager as it
// stands.
// Returns 0; -1 unsupported version, definition that does not parse or has members of the wrong
// kind, not sent, or refused; -2 null `api_def` or `token`, foreign `service_id`, or another opcode
// in the definition; -3 not initialised.
// Both texts are read during the call only.
// Waits without limit for the Manager's verdict.
// Register an opcode from one thread at a time: of several callers for the same opcode only the
// first is woken by an answer, and a call that waits since before a loss of the Manager counts: it
// takes the answer to the next registration. Call from a service or task thread, or as said above
// from an ORVD_RECONNECTED callback.
ORVD_EXPORT int32_t _orvd_svc_register_auth(uint32_t service_id, uint32_t opcode,
                                            const char* api_def, const char* token);

// Refused: logs that it is deprecated and returns -1, whatever the arguments.
ORVD_EXPORT int32_t _orvd_svc_register(...);

// --- Readiness

// Declares `opcode` ready. Its callbacks can be called from before this returns.
//
// Returns 0; -1 not sent (the opcode stays usable), or refused (the opcode is then not ready, even
// if it was before); -2 foreign `service_id`; -3 not initialised (nothing sent).
// `user_data` must stay valid after orvd_svc_deinit, for the receive thread works off the message
// at hand with its callbacks; simplest is for the life of the process.
// Waits without limit for the Manager's answer.
// A second call for a ready opcode asks the Manager again and keeps the first callbacks. There is
// no call that withdraws one opcode. An opcode without `state_callback` hears no notification and
// starts no session, and when it is the lowest one, nobody hears that the Manager has gone or is
// back; one without `task_function` runs no task.
// Make an opcode ready from one thread at a time. Call from a service or task thread, or as said
// above from an ORVD_RECONNECTED callback.
ORVD_EXPORT int32_t _orvd_svc_ready(uint32_t service_id, uint32_t opcode,
                                    orvd_state_callback_t state_callback, void* user_data,
                                    orvd_task_function_t task_function);

}  // extern "C"

// --- Supported pairs
// Any thread, callbacks included. None of them blocks.

// Adds the pair; a pair that is there already stays. Always returns 1.
ORVD_EXPORT int supported_services_add(uint32_t opcode, uint32_t ssid);
// Whether the pair is there: sessions start only such pairs.
ORVD_EXPORT bool is_service_supported(uint32_t opcode, uint32_t ssid);
// Removes all pairs. orvd_svc_deinit does so too; pairs of open sessions stay open.
ORVD_EXPORT void supported_services_clear();

// --- Answers

// Sends the answer that `call` holds. The library does this itself after each task, with an empty
// `req_type`. `req_type` shows only in the short form (`transac_id` -1). A failed send is logged,
// not reported.
ORVD_EXPORT void orvd_send_response(_orvex_call_info_t* call, std::string req_type);

// --- Queries
// Each waits for the Manager's answer for three seconds at most. Any number may wait at once, each
// for its own answer; one that comes late is dropped. From a callback a query cannot be answered,
// because the receive thread is busy with the callback: it ends by its time-out, and the thread
// goes on.
// Call from service and task threads. An answer whose list holds what cannot be read as numbers
// (permissions) or texts (items) ends the process.

// Asks whether the client behind the session holds the permissions.
//
// Returns what the Manager says, true for granted: one element for each permission when it answers
// in full, so compare the sizes; one false when it refuses to answer; none after the time-out; all
// false (one false when none was asked for) when the request could not be sent. Before
// initialisation the request is sent as from service -1, if there is a connection.
ORVD_EXPORT std::vector<bool> orvd_permission_query(uint32_t session_id,
                                                    std::vector<std::string> permissions);

// Asks for named information items in the context of the session.
//
// Returns the Manager's result texts, "SUCCESS:value" or "ERROR:reason", as many as it sends; none
// after the time-out; {"ERROR:Empty requested info"} at once when no item is named; as many empty
// texts as items, modulo 256, when the request could not be sent.
ORVD_EXPORT std::vector<std::string> orvd_info_query(uint32_t session_id,
                                                     std::vector<std::string> infos);

// The same as a standing request. What the Manager sends later because of it is not part of this
// call.
ORVD_EXPORT std::vector<std::string> orvd_info_monitor(uint32_t session_id,
                                                       std::vector<std::string> infos);

// The elements in double quotes, joined by commas; nothing is escaped.
ORVD_EXPORT std::string vector_to_string_with_quotes(const std::vector<std::string>& elements);

// Splits a result string at its first colon. Returns 0 for "SUCCESS", -1 for "ERROR", with the rest
// in `out`; -1 with "Empty result" or "Invalid result" in `out` for anything else.
ORVD_EXPORT int parse_result_of_query_info(std::string result, std::string& out);

// --- Constants

// The API-definition version that registration accepts: 2.
extern ORVD_EXPORT const uint8_t ORVD_JSON_DEF_VER_ARR[1];

// "[]," for services that take lists in texts apart. The library does not read it.
extern ORVD_EXPORT const char deliminator[4];
