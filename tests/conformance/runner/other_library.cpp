// A library that a case uses in place of a language library: it loads, but has no look-up function.
extern "C" __attribute__((visibility("default"))) int conformance_other() { return 0; }
