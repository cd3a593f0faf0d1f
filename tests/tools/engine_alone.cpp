// The engine as a shared object of its own, linked with -Wl,--no-undefined: the
// link succeeds only while the engine needs nothing but the standard libraries.
