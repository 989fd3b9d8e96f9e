// Makes the IPC library for tests depend on a function that no library has. Never called.
extern "C" void lumsar_test_nobody_has_this();

extern "C" __attribute__((visibility("default"))) void lumsar_test_call_nobody() {
  lumsar_test_nobody_has_this();
}
