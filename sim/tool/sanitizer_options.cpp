// Options of the sanitizers, read from the executable at its very start. LeakSanitizer does not see the
// stacks of fibers; the simulated machine keeps accounts of its own. Of who has allocated and freed, six
// callers are kept: more cost a tenth of the tests' time.
extern "C" {
const char* __asan_default_options();
const char* __ubsan_default_options();

const char* __asan_default_options() {
    return "detect_leaks=0:detect_stack_use_after_return=0:abort_on_error=1:malloc_context_size=6";
}

const char* __ubsan_default_options() {
    return "print_stacktrace=1:abort_on_error=1";
}
}
