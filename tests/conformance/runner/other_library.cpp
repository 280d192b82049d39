// A library that a case puts in a language library's place: it loads, and has no look-up.
extern "C" __attribute__((visibility("default"))) int conformance_other() { return 0; }
