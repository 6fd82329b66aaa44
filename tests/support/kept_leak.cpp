// Linked into what lists a VLAN twice: the leak checker is not to report the duplicate's int, which is deliberately not
// freed.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return "leak:create_and_add_extra_vlan";
}
