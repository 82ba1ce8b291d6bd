// Variables of the test program's own environment.
#pragma once

// `value` nullptr takes the variable away.
void environment_set(const char *name, const char *value);
// Puts the process into a time zone, written as a rule ("CST-8") so that the host needs no zone files.
void environment_zone(const char *rule);
// Names the host's own zone where a C library would otherwise load it anew at each conversion, under a lock that the
// thread checker does not see.
void environment_zone_keep();
