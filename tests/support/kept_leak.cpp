// Linked into what lists a VLAN twice or renews a portal login: the leak checker is not to report the duplicate's int
// and the login before, which are deliberately not freed.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return "leak:create_and_add_extra_vlan\nleak:renew_portal_login";
}
