// A stand-in for the Firebird client in the loader's tests, built as
// fbclient.dll in folders of its own: with fb_get_master_interface, as a
// client of Firebird 3 or later, and without it, as an older one. The
// interface it gives is only an address inside it, never called.
#ifdef WITH_MASTER_INTERFACE
static int master;
extern "C" __declspec(dllexport) void* fb_get_master_interface() { return &master; }
#else
extern "C" __declspec(dllexport) int isc_attach_database() { return 0; }
#endif
