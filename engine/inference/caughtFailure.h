// The status of an exception caught where inference meets its callers.
// Inside the engine failures are statuses; only allocation failures and
// table sizes that overflow an int arrive as exceptions.
#pragma once

class VEK_logger;

// Text logged with -42 when a table would have more entries than an int
// can count.
inline constexpr const char* VEK_kTableTooLarge =
    "Table too large: a probability table would have more than 2147483647 entries";

// Logs and returns the status of the exception being handled (call it from
// a catch block only): -42 for exhausted memory and for a table too large,
// with a message saying which; -1 with the exception's text otherwise.
int VEK_caughtFailure(VEK_logger& logger);
