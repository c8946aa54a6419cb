// The library under the second resource name has nothing but its name: all else is the first's. One
// function gives it a table of exports, as every other library has.
extern "C" void kelvrin_second_name();
extern "C" void kelvrin_second_name() {}
