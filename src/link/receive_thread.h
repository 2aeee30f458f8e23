#pragma once

// Starts the detached thread that reads the Manager's messages from the standing connection and
// serves them.
bool StartReceiveThread();
