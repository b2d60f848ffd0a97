// SPDX-License-Identifier: Apache-2.0
#include "gate.h"

#include "options.h"

#include <crypt.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <iterator>
#include <memory>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace exporter {
namespace {

bool is_right(const std::string &password, const std::string &hash)
{
    const auto space = std::make_unique<crypt_data>();
    const char *made = crypt_r(password.c_str(), hash.c_str(), space.get());
    return made != nullptr && std::strlen(made) == hash.size() && gnutls_memcmp(made, hash.data(), hash.size()) == 0;
}

} // namespace

gate::gate(std::map<std::string, std::string> users) : users_(std::move(users))
{
    if (gnutls_rnd(GNUTLS_RND_KEY, secret_.data(), secret_.size()) != 0)
        throw refusal("there are no random numbers to be had");
}

gate::~gate()
{
    if (!is_busy())
        return;
    kill(process_, SIGKILL);
    finish();
}

gate::digest gate::digest_of(const credentials &who) const
{
    const std::string text = who.user + '\0' + who.password;
    digest made{};
    gnutls_hmac_fast(GNUTLS_MAC_SHA256, secret_.data(), secret_.size(), text.data(), text.size(), made.data());
    return made;
}

bool gate::knows(const credentials &who) const
{
    return passed_.contains(digest_of(who));
}

// Somebody unknown is compared with the hash of one of the users, always of the same, for the costs may differ.
const std::string &gate::hash_for(const credentials &who, bool &is_known) const
{
    const auto found = users_.find(who.user);
    is_known = found != users_.end();
    if (is_known)
        return found->second;
    const std::size_t choice = digest_of({who.user, {}})[0] % users_.size();
    return std::next(users_.begin(), static_cast<std::ptrdiff_t>(choice))->second;
}

bool gate::begin(const credentials &who)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    asked_ = digest_of(who);
    const std::string &hash = hash_for(who, is_known_);
    const pid_t program = getpid();
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const char answer = is_right(who.password, hash) ? 1 : 0;
        _exit(getppid() == program && write(ends[1], &answer, 1) == 1 ? 0 : 1);
    }
    close(ends[1]);
    if (process_ < 0) {
        close(ends[0]);
        return false;
    }
    result_ = ends[0];
    return true;
}

bool gate::finish()
{
    char answer = 0;
    const bool is_told = read(result_, &answer, 1) == 1;
    close(result_);
    result_ = -1;
    waitpid(process_, nullptr, 0);
    const bool may_enter = is_told && answer == 1 && is_known_;
    if (may_enter)
        passed_.insert(asked_);
    return may_enter;
}

} // namespace exporter
