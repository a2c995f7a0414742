/* sanitizer_options.cpp: lets a request for impossibly much memory fail under an address checker,
 * as it does without one; the suite asks for that on purpose. */
extern "C" const char *__asan_default_options();

extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
