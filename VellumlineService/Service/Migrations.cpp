#include "VellumlineService/Service/Migrations.h"

namespace vellumline {

const std::vector<std::vector<const char*>>& migrations() {
    static const std::vector<std::vector<const char*>> all = {
        {
            "CREATE TABLE settings (name TEXT PRIMARY KEY, value TEXT NOT NULL)",
            "CREATE TABLE accounts (id BIGINT PRIMARY KEY, email TEXT NOT NULL, plan TEXT NOT NULL,"
            " rewrites_used BIGINT NOT NULL, free_rewrites BIGINT NOT NULL, month TEXT NOT NULL,"
            " month_used BIGINT NOT NULL, monthly_limit BIGINT NOT NULL, minute_limit BIGINT NOT NULL,"
            " renewal_canceled INTEGER NOT NULL, past_due INTEGER NOT NULL, closed INTEGER NOT NULL)",
            "CREATE TABLE families (id TEXT PRIMARY KEY, account_id BIGINT NOT NULL REFERENCES accounts(id),"
            " created_at BIGINT NOT NULL, ended_at BIGINT)",
            "CREATE TABLE handoffs (code_hash TEXT PRIMARY KEY, challenge TEXT NOT NULL,"
            " account_id BIGINT NOT NULL REFERENCES accounts(id), expires_at BIGINT NOT NULL, used_at BIGINT,"
            " family_id TEXT)",
            "CREATE TABLE refresh_tokens (token_hash TEXT PRIMARY KEY,"
            " family_id TEXT NOT NULL REFERENCES families(id), issued_at BIGINT NOT NULL, used_at BIGINT)",
            "CREATE INDEX refresh_tokens_family ON refresh_tokens (family_id)",
        },
        {
            // The minute's rewrites are counted where every process sees them.
            "ALTER TABLE accounts ADD COLUMN minute_started BIGINT NOT NULL DEFAULT 0",
            "ALTER TABLE accounts ADD COLUMN minute_used BIGINT NOT NULL DEFAULT 0",
        },
        {
            "CREATE TABLE signing_keys (id TEXT PRIMARY KEY, secret TEXT NOT NULL, created_at BIGINT NOT "
            "NULL)",
            "DELETE FROM settings WHERE name = 'signingKey'",
            "CREATE TABLE counters (name TEXT PRIMARY KEY, value BIGINT NOT NULL)",
            "CREATE TABLE logins (email TEXT PRIMARY KEY, account_id BIGINT NOT NULL UNIQUE REFERENCES "
            "accounts(id),"
            " password_hash TEXT NOT NULL)",
            "CREATE TABLE browser_sessions (token_hash TEXT PRIMARY KEY, id TEXT NOT NULL UNIQUE,"
            " account_id BIGINT NOT NULL REFERENCES accounts(id), created_at BIGINT NOT NULL,"
            " last_used_at BIGINT NOT NULL)",
            "CREATE INDEX browser_sessions_account ON browser_sessions (account_id)",
            "CREATE TABLE one_time_codes (code_hash TEXT PRIMARY KEY, purpose TEXT NOT NULL,"
            " account_id BIGINT REFERENCES accounts(id), email TEXT NOT NULL, expires_at BIGINT NOT NULL)",
            "CREATE TABLE attempts (subject TEXT PRIMARY KEY, started_at BIGINT NOT NULL, count BIGINT NOT "
            "NULL)",
            "ALTER TABLE families ADD COLUMN last_used_at BIGINT NOT NULL DEFAULT 0",
            "UPDATE families SET last_used_at = created_at",
            "CREATE INDEX families_account ON families (account_id)",
        },
    };
    return all;
}

} // namespace vellumline
