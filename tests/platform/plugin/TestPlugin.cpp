// A plug-in for the loader's tests: its entry point tells the installed host,
// which only works if the plug-in shares the library's one host.

#include "kordll/platform/Host.h"

extern "C" void LoadResources() {
  kordll::Host::Current()->MessageBox("LoadResources ran", "TestPlugin", kordll::MB_OK);
}
