#pragma once

#include <string>

namespace tools::horactl {

// The files that say whether somebody calls or watches, for a simulated horad: while one lives, the probes
// read these instead of the kernel's. One at a time. The line is idle at first.
class LineFiles {
public:
    // Throws Refused where the system can't make them.
    LineFiles();
    ~LineFiles();
    LineFiles(const LineFiles&) = delete;
    LineFiles& operator=(const LineFiles&) = delete;

    void setCall(bool active);
    void setStream(bool active);

private:
    // A file in memory, which has a path as long as it is open.
    class File {
    public:
        explicit File(const char*& probed);
        ~File();
        File(const File&) = delete;
        File& operator=(const File&) = delete;

        void write(const std::string& content);

    private:
        int descriptor_;
        std::string path_;
        const char*& probed_;
        const char* kernels_;
    };

    File calls_;
    File streams_;
    File streams6_;
};

} // namespace tools::horactl
