// Blocks that the drawing libraries keep for the life of the process: one font configuration, and a
// few bytes a page. Read by the leak checker of the sanitizer build; nothing else calls it.
extern "C" const char* __lsan_default_suppressions();   // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "leak:libfontconfig\nleak:libgiza\nleak:libcairo\n";
}
