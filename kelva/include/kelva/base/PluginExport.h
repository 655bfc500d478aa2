#pragma once
// Marks a function of a plug-in library as one the toolkit's plug-in loader looks up by name: exported
// from a Windows DLL, default visibility in an ELF library. Hooks are C functions of the loader's names:
//   extern "C" KELVA_PLUGIN_EXPORT void M_Alert_IService_CmdRaiseAlarm_ToPlugin(...);
#if defined(_WIN32)
#define KELVA_PLUGIN_EXPORT __declspec(dllexport)
#else
#define KELVA_PLUGIN_EXPORT __attribute__((visibility("default")))
#endif
