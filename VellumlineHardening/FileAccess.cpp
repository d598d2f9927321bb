#include "VellumlineHardening/FileAccess.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vellumline {

namespace {

// Of Linux 6.2, and newer than Debian 12's headers.
constexpr __u64 truncate = 1U << 14;

// The C library has no functions for these calls.
int makeRules(const landlock_ruleset_attr* attributes, size_t size, __u32 flags) {
    return static_cast<int>(syscall(SYS_landlock_create_ruleset, attributes, size, flags));
}

bool allowBeneath(int rules, const std::string& folder, __u64 access) {
    landlock_path_beneath_attr beneath = {};
    beneath.allowed_access = access;
    beneath.parent_fd = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (beneath.parent_fd < 0)
        return false;
    const bool added = syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &beneath, 0) == 0;
    close(beneath.parent_fd);
    return added;
}

} // namespace

bool keepWritesTo(const std::string& folder) {
    const int version = makeRules(nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1)
        return false;
    landlock_ruleset_attr attributes = {};
    attributes.handled_access_fs = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                   LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                   LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                                   LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                   LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
    if (version >= 3)
        attributes.handled_access_fs |= truncate;
    const int rules = makeRules(&attributes, sizeof attributes, 0);
    if (rules < 0)
        return false;
    const bool inForce = (folder.empty() || allowBeneath(rules, folder, attributes.handled_access_fs)) &&
                         prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                         syscall(SYS_landlock_restrict_self, rules, 0) == 0;
    close(rules);
    return inForce;
}

} // namespace vellumline
