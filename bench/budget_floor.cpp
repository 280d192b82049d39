// An empty library with the plugin's dependencies: the cost of loading any library.
extern "C" __attribute__((visibility("default"))) const char budget_floor = 0;
