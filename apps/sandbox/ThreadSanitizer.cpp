/// What ThreadSanitizer leaves aside: the packaged cpp-httplib was built without it, so the locks around its constants,
/// regular expressions among them, are not seen.
extern "C" const char* __tsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
const char* __tsan_default_suppressions() {
  return "called_from_lib:libcpp-httplib.so\n"
         "race:std::__detail::\n";
}
