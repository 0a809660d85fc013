// Linked into the test programs: which mutant of a source with all of them it is, 0 for none.
#include <cstdlib>

extern "C" {

volatile int korvane_mutant = 0;

[[gnu::constructor(101)]] static void chooseMutant() {
    const char* number = getenv("KORVANE_MUTANT");
    if (number != nullptr) korvane_mutant = atoi(number);
}

}  // extern "C"
