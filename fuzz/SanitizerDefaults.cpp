// Sanitizer settings built into the fuzz targets, so that running one by hand
// behaves like the bounded runs of scripts/fuzz.sh: every report stops the
// run, except the known third-party one listed in ubsan.supp.
extern "C" const char* __ubsan_default_options() {
    return "halt_on_error=1:print_stacktrace=1:suppressions=" VEK_UBSAN_SUPPRESSIONS;
}
