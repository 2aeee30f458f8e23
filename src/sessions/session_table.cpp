#include "sessions/session_table.h"

#include "link/never_destroyed.h"

SessionTable& Sessions() {
  return ProcessWide<SessionTable>();
}
