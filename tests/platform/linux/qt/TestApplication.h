#pragma once
// A small application inside the test program: what ApplicationMain runs when a test starts the program as one.

namespace tests {

// Set in the environment of a program that is to be the application.
inline constexpr const char* applicationRole = "KELTO_TEST_APPLICATION";

// Says on standard output what happens to it. The arguments "-Shell LINE" and "-Observe NAME" give it something to do.
int runTestApplication(int argc, char** argv);

}  // namespace tests
