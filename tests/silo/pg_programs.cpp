// The server's programs, and the user that they run as.
#include "tests/silo/pg_server.h"

#include <cstring>
#include <filesystem>
#include <memory>

#include <arpa/inet.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fs = std::filesystem;

// The newest release's folder; empty when none is installed.
static std::string programs_folder()
{
    fs::path best;
    std::error_code none;
    for (const auto &release : fs::directory_iterator("/usr/lib/postgresql", none))
        if (fs::exists(release.path() / "bin/postgres") && release.path().string() > best.string())
            best = release.path();
    return best.empty() ? "" : (best / "bin").string();
}

bool pg_programs_are_there(std::string *why)
{
    bool is_there = !programs_folder().empty() && fs::exists("/usr/bin/setpriv");
    if (!is_there)
        *why = "no PostgreSQL server to test with: install the packages postgresql and util-linux";
    return is_there;
}

static const passwd *server_user()
{
    const passwd *user = getpwnam("postgres");
    return user != nullptr ? user : getpwnam("nobody");
}

std::vector<std::string> pg_command(const std::string &program, const std::vector<std::string> &words)
{
    std::vector<std::string> command = {"/usr/bin/setpriv"};
    if (geteuid() == 0)
        for (const std::string &word :
             {"--reuid=" + std::to_string(server_user()->pw_uid), "--regid=" + std::to_string(server_user()->pw_gid),
              std::string("--clear-groups")})
            command.push_back(word);
    // The change of user would otherwise let it outlive the test.
    command.push_back("--pdeathsig=KILL");
    command.push_back(programs_folder() + "/" + program);
    command.insert(command.end(), words.begin(), words.end());
    return command;
}

bool pg_give_folder(const std::string &folder)
{
    return geteuid() != 0 || chown(folder.c_str(), server_user()->pw_uid, server_user()->pw_gid) == 0;
}

uint16_t pg_free_port()
{
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        address.sin_port = 0;
    close(listener);
    return ntohs(address.sin_port);
}

std::string pg_ask_server(const std::string &uri, const std::string &sql)
{
    std::unique_ptr<PGconn, decltype(&PQfinish)> conn(PQconnectdb(uri.c_str()), PQfinish);
    if (PQstatus(conn.get()) != CONNECTION_OK)
        return std::string("ERROR ") + PQerrorMessage(conn.get());
    std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(conn.get(), sql.c_str()), PQclear);
    switch (PQresultStatus(result.get())) {
    case PGRES_COMMAND_OK:
        return "";
    case PGRES_TUPLES_OK:
        return PQntuples(result.get()) == 0 ? "" : PQgetvalue(result.get(), 0, 0);
    default:
        return std::string("ERROR ") + PQresultErrorMessage(result.get());
    }
}
