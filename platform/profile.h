// Profile files: what the library adds to GetPrivateProfileStringW.
#pragma once

namespace q417::profile {

// Marks a run of profile reads that belong together, such as a job's read of all watermark
// definitions, while the caller holds the file open against writers. The first read of a file
// in the run checks that the kept parse still stands for it; the later ones use it unchecked.
// Runs may nest; the outermost one ends the run.
class ReadBatch {
  public:
    ReadBatch();
    ~ReadBatch();
    ReadBatch(const ReadBatch &) = delete;
    ReadBatch &operator=(const ReadBatch &) = delete;
};

} // namespace q417::profile
