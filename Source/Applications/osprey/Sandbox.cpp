#include "Sandbox.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace
{

// Later than the kernel headers of Debian 12.
const uint64_t ACCESS_TRUNCATE = 1ULL << 14;
const uint64_t ACCESS_IOCTL_DEVICE = 1ULL << 15;

const uint64_t FILE_READ = LANDLOCK_ACCESS_FS_READ_FILE;
const uint64_t FILE_WRITE = LANDLOCK_ACCESS_FS_WRITE_FILE | ACCESS_TRUNCATE;
const uint64_t FOLDER_READ = FILE_READ | LANDLOCK_ACCESS_FS_READ_DIR;
const uint64_t FOLDER_WRITE = FOLDER_READ | FILE_WRITE | LANDLOCK_ACCESS_FS_MAKE_REG |
                              LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                              LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REFER;

// What a version of Landlock knows, and so can deny. Later versions know more, which is left alone.
uint64_t KnownAccess(long lVersion)
{
    uint64_t ullKnown = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;
    ullKnown |= lVersion >= 2 ? LANDLOCK_ACCESS_FS_REFER : 0;
    ullKnown |= lVersion >= 3 ? ACCESS_TRUNCATE : 0;
    ullKnown |= lVersion >= 5 ? ACCESS_IOCTL_DEVICE : 0;
    return ullKnown;
}

bool Allow(const CDescriptor& rules, const CDescriptor& file, uint64_t ullAccess)
{
    landlock_path_beneath_attr attributes{};
    attributes.allowed_access = ullAccess;
    attributes.parent_fd = file.Get();
    return syscall(SYS_landlock_add_rule, rules.Get(), LANDLOCK_RULE_PATH_BENEATH, &attributes,
                   0) == 0;
}

}  // namespace

bool ConfineTo(const CDescriptor& folder, bool bReadOnly)
{
#if defined(__SANITIZE_ADDRESS__)
    // Its search for leaks halts all threads by ptrace, which is not granted from inside to those
    // that were there before.
    static_cast<void>(folder);
    static_cast<void>(bReadOnly);
    return false;
#endif
    tzset();  // reads the file of the time zone, once
    const long lVersion =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (lVersion < 1)
    {
        return false;
    }
    const uint64_t ullKnown = KnownAccess(lVersion);
    landlock_ruleset_attr attributes{};
    attributes.handled_access_fs = ullKnown;
    const CDescriptor rules(
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
    // The library keeps one descriptor of it in reserve.
    const CDescriptor null(open("/dev/null", O_PATH | O_CLOEXEC));
    return rules.IsValid() &&
           Allow(rules, folder, (bReadOnly ? FOLDER_READ : FOLDER_WRITE) & ullKnown) &&
           (!null.IsValid() || Allow(rules, null, (FILE_READ | FILE_WRITE) & ullKnown)) &&
           prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           syscall(SYS_landlock_restrict_self, rules.Get(), 0) == 0;
}
