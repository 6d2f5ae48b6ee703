// The service manager's state directory on a PC: one small text file per
// service, named after the service and holding its state ("running",
// "stopped", "restarting", ...). The monitor reads it; whoever plays the
// service manager (svcctl, a test, startServiceAndWait) writes it.
//
// Reading rule: a service's state is the text of its file with trailing
// white space removed. A service with no file reads as the text of the file
// ".default" in the same directory, and as "running" when that file is absent
// too, so a PC without any service manager sees every service running. An
// empty file reads as the empty state (a writer that truncates before it
// writes is caught mid-way), which no one acts upon.
//
// Not part of the device's interface. Any thread; instances hold no state
// besides the path.
#ifndef SVC_STATE_DIR_H
#define SVC_STATE_DIR_H

#include <map>
#include <string>
#include <vector>

class SvcStateDir {
public:
    // Directory used when DVR_SVC_DIR is unset or empty.
    static constexpr const char *kDefaultPath = "/tmp/dvr_svc";
    static constexpr const char *kPathVariable = "DVR_SVC_DIR";
    // File whose text is the state of every service without a file.
    static constexpr const char *kDefaultStateFile = ".default";
    // State of a service when neither its file nor ".default" exists.
    static constexpr const char *kImplicitState = "running";

    // The directory named by DVR_SVC_DIR, or kDefaultPath.
    static SvcStateDir fromEnvironment();
    explicit SvcStateDir(std::string path);

    const std::string &path() const { return mPath; }

    // A service name is 1 to 255 bytes without '/', NUL or control
    // characters, and does not start with '.'.
    static bool isValidName(const std::string &name);
    // A state that may be written: 1 to SVC_MON_STATE_MAX - 1 printable bytes
    // without blanks.
    static bool isValidState(const std::string &state);

    // Creates the directory and its parents when missing.
    bool create(std::string *error) const;
    // The state of service by the reading rule above. Fails, naming the cause
    // in *error, for a bad name or an unreadable or malformed file.
    bool read(const std::string &service, std::string *state, std::string *error) const;
    // Replaces the service's file atomically (readers see the old or the new
    // text, never a mix); creates the directory when missing.
    bool write(const std::string &service, const std::string &state, std::string *error) const;
    // Removes the service's file, so it reads by the default rule again.
    // Removing a missing file succeeds.
    bool remove(const std::string &service, std::string *error) const;
    // The state of services without a file, and how to change it.
    bool readDefault(std::string *state, std::string *error) const;
    bool writeDefault(const std::string &state, std::string *error) const;
    bool removeDefault(std::string *error) const;
    // Every service with a file of its own and its state, by name. Files that
    // cannot be read are left out and described in *problems.
    std::map<std::string, std::string> list(std::vector<std::string> *problems) const;

private:
    std::string fileOf(const std::string &name) const { return mPath + "/" + name; }
    bool readFile(const std::string &name, bool *exists, std::string *state,
                  std::string *error) const;
    bool writeFile(const std::string &name, const std::string &state, std::string *error) const;
    bool removeFile(const std::string &name, std::string *error) const;

    std::string mPath;
};

#endif  // SVC_STATE_DIR_H
