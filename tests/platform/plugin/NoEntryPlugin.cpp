// A plug-in for the loader's tests without the entry point.

extern "C" int NotTheEntryPoint() { return 7; }
