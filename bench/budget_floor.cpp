// A library with the plugin's dependencies and nothing in it: what loading any library costs.
extern "C" __attribute__((visibility("default"))) const char budget_floor = 0;
