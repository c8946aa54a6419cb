// A library that needs another one beside it.
extern "C" {
int Initialised();
__attribute__((visibility("default"))) int InitialisedThere() { return Initialised(); }
}
