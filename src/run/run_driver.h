// The spine of a run: banner, script, reference, the loop over the images and
// the end of the run.
#pragma once

// Runs the whole job for the command line given; returns the exit status
// (0, or 1 when a file could not be written). Fatal errors do not return.
int RunKelvarion(int argc, char** argv);

// Refuses the settings that would make a later stage loop forever or allocate
// a negative size: message naming the value, then FatalError.
void CheckSettings();
