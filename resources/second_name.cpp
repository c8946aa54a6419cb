// The library under the second resource name has nothing but its name: all else is the first's. One
// symbol gives it a table of exports, as every other library has.
extern const char kelvrin_second_name[];
const char kelvrin_second_name[] = "libpkcs11qarn_Vumo_PCSC";
