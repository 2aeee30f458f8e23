// Receive and task threads outlive main, so the state that they touch is never destroyed.

#pragma once

// The one T of the process, made at first use.
template <typename T>
T& ProcessWide() {
  static T& instance = *new T;
  return instance;
}
