#pragma once

#include <functional>
#include <string>

/**
 * Whether a package comes from somebody whom the panel trusts: signed, in minisign's form, by one of the
 * public keys in a directory (`*.pub`). For the panel and for programs on a desk. Any thread.
 */
namespace packageTrust {

struct VERDICT {
    std::string whyNot; ///< for the log; empty of a trusted package, of which the rest tells
    std::string key;
    std::string comment; ///< the trusted one, on one line
};

/** Does what may take long, and tells its result. */
using WORKER = std::function<bool(const std::function<bool()>&)>;

/**
 * Judges an archive by the signature beside it. Keys or a directory that can't be read trust nobody. The
 * archive itself is read through `worker`.
 */
VERDICT judge(
    const std::string& archive, const std::string& keys,
    const WORKER& worker = [](const std::function<bool()>& work) { return work(); });

} // namespace packageTrust
