// liborvex2_0: lets a vendor service process offer functions through the ORVEX Manager.
//
// Terms
// -----
//
//   Manager         the system daemon that connects clients to services
//   opcode          the 32-bit number of one API that the service offers
//   subsystem       a part of that API; its 32-bit number is the subsystem id
//   pair            an opcode and the id of one of its subsystems
//   session         what the Manager opens for a client; it contains pairs
//   task            one call of a service function, sent by the Manager for a pair of a session
//   ready table     the library's table of the opcodes that are ready, with their callbacks
//   event           what the library reports to a session-state callback, see orvd_status_t
//   notification    an event about a permission, a state or a system setting
//   receive thread  the library's thread that reads all messages from the Manager
//   client          a program that calls functions of services through the Manager
//
// Usage
// -----
// A service normally calls these functions on one of its own threads, in this order:
//
// 1. orvd_svc_init
// 2. for each opcode _orvd_svc_register_auth, then _orvd_svc_ready
// 3. orvd_svc_deinit, before it stops
//
// During and after the second step the receive thread calls the session-state callbacks of the
// service. Each task runs on a new thread.
//
// Results
// -------
// Functions with a result code return these values. A function states where it differs.
//
//   0   success
//   -1  failure
//   -2  wrong service id or bad argument
//   -3  the library is not initialised
//
// Threads and callbacks
// ---------------------
// Session-state callbacks run on the receive thread.
// The library reads no message while a callback runs, so every callback must return quickly.
//
// The receive thread also delivers the Manager's answers. A callback must therefore not call a
// function that waits for an answer:
//
// - orvd_svc_init, _orvd_svc_register_auth and _orvd_svc_ready would never return.
// - A query would return only after its time-out.
//
// In an ORVD_RECONNECTED callback the first three functions may be called, see below.
//
// The library holds a lock during most callbacks. orvd_status_t names the lock for each event.
// The locks are not recursive: a callback must not call a function that takes the same lock.
// orvd_svc_deinit and _orvd_svc_ready take the ready-table lock.
//
// A callback must not call orvd_svc_deinit either. Two events allow
// more. The library holds no lock during them, so their callbacks may make these calls in addition:
//
// - An ORVD_TERMINATED callback may call orvd_svc_deinit.
// - An ORVD_RECONNECTED callback may call orvd_svc_deinit and then initialise the service again.
//
// To initialise again, it calls orvd_svc_init, and then _orvd_svc_register_auth and
// _orvd_svc_ready. These calls return there, because orvd_svc_init starts a new receive thread that
// delivers the answers. Another thread may still wait in an earlier call of _orvd_svc_register_auth
// or _orvd_svc_ready. The callback must not register the opcode of that call, or make it ready.
//
// A task function may call every function except these three: orvd_svc_init, orvd_svc_deinit, and
// ClearParamsFromQueues for the arguments that the task function received. A task continues when
// its session ends, and its answer is still sent.
//
// An exception that leaves a callback or a task function ends the process.
//
// Blocking
// --------
// orvd_svc_init, _orvd_svc_register_auth and _orvd_svc_ready wait for the Manager's answer without
// a time limit. They continue to wait when the Manager closes the connection. A service can limit
// such a call only by ending its process, for example with alarm or a watchdog. The process can
// exit at any time, also while a call waits.
//
// A function that sends a message blocks while the Manager does not read and the socket's buffer is
// full. orvd_svc_deinit is such a function. Connecting blocks while the Manager accepts no
// connection and its queue of connections is full.
//
// Texts
// -----
// A pointer to a text must not be null, unless the function says that it may be.
// The library copies texts into messages without escaping. A quotation mark in a text can make the
// message invalid JSON, and the Manager may then never answer. A NUL character inside a std::string
// cuts off the rest of the whole message.
//
// A message larger than the socket's send buffer is not sent, and the call fails like any failed
// send. The size of this buffer is about 212 kB by default.
//
// Socket
// ------
// The Manager has a shared socket and a dedicated socket. The library uses the dedicated socket
// only on debuggable builds, that is where "ro.build.type" is "userdebug" or "eng". On
// these builds the library compares the name of the connecting thread with an expected name. The
// expected name comes from the property "vendor.orvex.one.plix" or "vendor.orvex.one.service". If
// the two names match, the process is called the dedicated client. It normally uses the dedicated
// socket. docs/ANDROID.md explains which property is used, how names match, and one exception.
//
// The receive thread inherits the name of the thread that calls orvd_svc_init. It reconnects under
// that name. Name the thread before it calls orvd_svc_init, and do not rename it later.
//
// Log
// ---
//
// The library writes its lines to the Android log without a tag. The property
// "persist.vendor.orvex.clientlib.debug_level" is the debug level, 4 by default. orvd_svc_init
// reads it, unless the library is already initialised. Before the first call the debug level is 0.
// A line is written if its own level is not above the debug level:
//
//   0  always written
//   1  failures
//   2  warnings
//   3  details
//   4  progress
//
// docs/LOGS.md explains the lines.
//
// Trust
// -----
// The library trusts the Manager: some messages end the process. For example, in many kinds of
// messages one member of the wrong JSON type is enough. docs/ANDROID.md lists all
// messages that can end the process.
// The log shows the first 250 characters of each message that the library sends, at every debug
// level. The token of _orvd_svc_register_auth can be among them. docs/ANDROID.md has the details.
//
// Process
// -------
// A process can be only one service: it has one service id and one connection. The library never
// destroys its state, because its threads can run until the process exits.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IOrvdClient_utility.h"
#include "orvd_types.h"
#include "orvex_args.h"

extern "C" {

// --- Lifecycle

// Connects to the Manager, starts the receive thread and obtains the service id. If the library is
// already initialised, the call only returns the present service id.
//
// Returns the service id, which is 0 or greater, or a negative number:
//
//   -1     the Manager cannot be reached, the receive thread cannot be started, the request cannot
//          be sent, or the Manager refuses the service with -1; a later call can succeed
//   other  the Manager refuses the service with this number
//
// After a negative number other than -1 the library counts as initialised. Call orvd_svc_deinit
// with that number before the next attempt.
//
// Blocks without a time limit until the Manager answers.
// Call orvd_svc_init and orvd_svc_deinit from one thread at a time. This must be a service thread
// or the receive thread in an ORVD_RECONNECTED callback. orvd_svc_deinit may also be called in an
// ORVD_TERMINATED callback.
ORVD_EXPORT int orvd_svc_init(void);

// Sends the messages DINT and EXIT (see docs/PROTOCOL.md) to the Manager and closes the connection.
// Removes all supported pairs, all ready opcodes and the service id. Stops a reconnection that is
// in progress.
//
// The call sends nothing and leaves the connection open in two cases. The next orvd_svc_init then
// uses this connection.
//
// - The Manager refused the service: orvd_svc_init returned a negative number other than -1.
// - The library has reconnected after the Manager closed the connection, and the service has not
//   called orvd_svc_deinit and orvd_svc_init since then.
//
// The dedicated client sends both messages and closes the connection in these cases too.
//
// Returns a result code:
//
//   0   done, also when a message could not be sent
//   -2  the library is initialised under another id
//   -3  the library is not initialised
//
// The library keeps open sessions and calls no callback for them. After the next initialisation,
// new tasks of these sessions run as soon as the opcode is ready. Exception: if, at the time of the
// call, an opcode is ready and the Manager has already closed the connection, the library removes
// the sessions without a callback. This
// exception does not apply if the connection was reset. A reset happens when the Manager closes the
// connection while messages of the service are still unread. The library then keeps the sessions.
//
// Running tasks continue. Each answer is sent on the connection that exists when the task ends. If
// there is none, the answer is lost.
// The receive thread finishes the message that it handles, and ends. It sends nothing more, unless
// its callback has called this function and then orvd_svc_init.
//
// If another thread is inside _orvd_svc_register_auth or _orvd_svc_ready, its call leaves no
// supported pair and no ready opcode behind. This is what happens to that call:
//
//   its request is not sent       the call fails
//   no answer is delivered to it  the call waits without a time limit
//   the answer is delivered       _orvd_svc_register_auth returns -1; _orvd_svc_ready returns 0 if
//                                 the Manager accepts, and -1 if the Manager refuses
//
// Blocks while a notification callback runs, because both need the ready-table lock. Such a
// callback must not wait for this call. The call does not wait for the receive thread or for tasks.
// Call it on the same threads as orvd_svc_init, or in an ORVD_TERMINATED callback.
ORVD_EXPORT int orvd_svc_deinit(unsigned int svc_id);

// Writes a marker line with `text` to the log. Also sends `text` to the Manager if the dedicated
// socket was chosen at the last attempt to connect and the property "vendor.orvex.one.markers" was
// true then.
// Call it on any thread, also in a callback.
ORVD_EXPORT void orvd_log_marker(const char* text);

// --- Registration

// Registers `opcode` with its API definition and the service's token. On success the library
// supports every subsystem that the definition lists for this opcode.
//
// `api_def` has three parts: a prefix, the version and JSON text.
//
// - The prefix is the seven bytes "\x01" "ORVEX" "\x01". It may be missing or cut short.
// - The version is the byte 2.
// - The JSON text is an object. Its member "Orvex" is an object too. The library sends the text to
//   the Manager unchanged.
//
// "Orvex" has the members "opcode" and "subsystems". "opcode" is hexadecimal text. "subsystems" is
// a list of objects that have a number "id". A JSON null counts as a missing member.
//
// Returns a result code:
//
//   0   registered
//   -1  the version is not 2, the definition does not parse, a member of it has the wrong type, the
//       request cannot be sent, the Manager refuses, or another thread deinitialises meanwhile
//   -2  `service_id` is not the id of this service, `api_def` or `token` is null, or the definition
//       has another opcode
//   -3  the library is not initialised
//
// The library reads both texts only during the call.
//
// Blocks without a time limit until the Manager answers.
// Call it on a service thread, on a task thread, or in an ORVD_RECONNECTED callback.
// Register an opcode from one thread at a time. If several calls for one opcode wait, an answer
// wakes only the first of them, and the others never return. A call that was
// already waiting when the Manager closed the connection still waits. If the service registers the
// same opcode again, the answer wakes that old call, and the new call never returns.
ORVD_EXPORT int32_t _orvd_svc_register_auth(uint32_t service_id, uint32_t opcode,
                                            const char* api_def, const char* token);

// Deprecated. Writes one log line and returns -1, whatever the arguments are.
ORVD_EXPORT int32_t _orvd_svc_register(...);

// --- Readiness

// Makes `opcode` ready: sessions of it can start, and its callbacks can be called. The library can
// call them before this function returns.
//
// Returns a result code:
//
//   0   the Manager accepts; the opcode is ready, unless another thread has deinitialised
//       meanwhile
//   -1  the request cannot be sent, but the opcode is ready
//   -1  the Manager refuses; the opcode is not ready, even if it was ready before
//   -1  another thread deinitialises before the request is sent; the opcode is not ready
//   -2  `service_id` is not the id of this service; nothing is sent
//   -3  the library is not initialised; nothing is sent
//
// `user_data` belongs to the service and must stay valid, even after orvd_svc_deinit: the receive
// thread can still be in a callback then. The simplest way is to never free it.
//
// A second call for a ready opcode asks the Manager again and keeps the first callbacks. There is
// no function that removes a single opcode. An opcode is removed only when the Manager refuses a
// call of _orvd_svc_ready for it. orvd_svc_deinit removes all opcodes.
//
// `state_callback` may be null. The opcode then receives no event, and no session of it starts. The
// library reports ORVD_TERMINATED and ORVD_RECONNECTED only to the ready opcode with the smallest
// number. If the callback of that opcode is null, no callback receives these two events.
// `task_function` may be null. No task of the opcode runs then.
//
// Blocks without a time limit until the Manager answers.
// Call it on a service thread, on a task thread, or in an ORVD_RECONNECTED callback.
// Make an opcode ready from one thread at a time.
ORVD_EXPORT int32_t _orvd_svc_ready(uint32_t service_id, uint32_t opcode,
                                    orvd_state_callback_t state_callback, void* user_data,
                                    orvd_task_function_t task_function);

}  // extern "C"

// --- Supported pairs
// The pairs for which sessions can start. Call these functions on any thread, also in a callback.
// None of them blocks.

// Adds the pair, unless it is already supported. Always returns 1.
ORVD_EXPORT int supported_services_add(uint32_t opcode, uint32_t ssid);
// Returns true if the pair is supported.
ORVD_EXPORT bool is_service_supported(uint32_t opcode, uint32_t ssid);
// Removes all supported pairs. Pairs that are already part of a session stay in it.
ORVD_EXPORT void supported_services_clear();

// --- Answers

// Makes an answer from `call` and sends it to the Manager. The library calls this function itself
// after each task, with an empty `req_type`.
// `req_type` is used only in the short answer, which is sent when `transac_id` is -1.
// The caller keeps `call`. A failed send is only logged.
ORVD_EXPORT void orvd_send_response(_orvex_call_info_t* call, std::string req_type);

// --- Queries
// A query waits for the Manager's answer for at most three seconds. Several queries can wait at the
// same time, and each receives its own answer. An answer that arrives later is dropped.
//
// Call queries on service threads and task threads. In a callback the receive thread cannot deliver
// the answer: the query returns after its time-out, and the receive thread then continues.
//
// Some answers end the process, for example a permission result that cannot be read as a number of
// 32 bits, or an item of information that is a list or an object.

// Asks the Manager whether the client of the session has the permissions.
//
// Returns what the Manager answers. True means granted:
//
//   results            one element for each result; the Manager can send more or fewer results than
//                      permissions, so compare the sizes
//   refusal            one false
//   no answer in time  empty
//   not sent           one false for each permission; one false if there are no permissions
//
// If the library is not initialised but has a connection, the request names the service id -1.
ORVD_EXPORT std::vector<bool> orvd_permission_query(uint32_t session_id,
                                                    std::vector<std::string> permissions);

// Asks the Manager for named items of information about the session.
//
// Returns texts of the form "SUCCESS:value" or "ERROR:reason":
//
//   answer             the texts that the Manager sends; compare their number with the items
//   no answer in time  empty
//   no item            one text, "ERROR:Empty requested info"; nothing is sent
//   not sent           empty texts; their number is the number of items modulo 256, so 256 items
//                      give an empty result
ORVD_EXPORT std::vector<std::string> orvd_info_query(uint32_t session_id,
                                                     std::vector<std::string> infos);

// Asks the Manager to monitor the items (message INFO_MNTR). The Manager can send several answers.
// The call returns the first one, with the same results as orvd_info_query. The library drops the
// others.
ORVD_EXPORT std::vector<std::string> orvd_info_monitor(uint32_t session_id,
                                                       std::vector<std::string> infos);

// Returns the elements in double quotes, separated by commas. Nothing is escaped.
ORVD_EXPORT std::string vector_to_string_with_quotes(const std::vector<std::string>& elements);

// Splits a result of orvd_info_query or orvd_info_monitor at its first colon.
//
// Returns 0 or -1:
//
//   0   the text before the colon is "SUCCESS"; `out` is the text after it
//   -1  the text before the colon is "ERROR"; `out` is the text after it
//   -1  `result` is empty; `out` is "Empty result"
//   -1  anything else; `out` is "Invalid result"
ORVD_EXPORT int parse_result_of_query_info(std::string result, std::string& out);

// --- Constants

// The version of API definitions that _orvd_svc_register_auth accepts: 2.
extern ORVD_EXPORT const uint8_t ORVD_JSON_DEF_VER_ARR[1];

// Three characters: left bracket, right bracket, comma. A service can use them as separators when
// it splits a text that contains a list. The library does not use this constant.
extern ORVD_EXPORT const char deliminator[4];
