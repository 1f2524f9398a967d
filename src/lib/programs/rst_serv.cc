#include "lib/programs/rst_serv.h"

#include "lib/conf/autoprepend.h"
#include "lib/files/libfile.h"
#include "lib/panel/dbconnect.h"
#include "lib/panel/get_param.h"
#include "lib/programs/send_sig.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/libsafe.h"

#include <boost/algorithm/string/predicate.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

using boost::algorithm::istarts_with;

namespace {

constexpr char tomcat_process[] = "org.apache.catalina.startup.Bootstrap";
constexpr unsigned int tomcat_wait = 5;
constexpr int tomcat_probes = 5;

constexpr unsigned int httpd_wait = 2;
constexpr int httpd_probes = 41;

bool is(char const* action, char const* word)
{
    return strcmp(action, word) == 0;
}

char const* httpd_service()
{
    return orvConfGetDefaultByIndex(_HTTPD_SERVICE_INDEX);
}

// True also when the process table cannot be read: nothing shows that the process has gone.
bool tomcat_remains_after(unsigned int seconds)
{
    sleep(seconds);
    return kill_by_field("command", tomcat_process, 0) != 0;
}

// False when a process remains.
bool end_tomcat()
{
    kill_by_field("command", tomcat_process, SIGTERM);
    for (int probe = 0; probe < tomcat_probes; ++probe)
        if (!tomcat_remains_after(tomcat_wait))
            return true;
    kill_by_field("command", tomcat_process, SIGKILL);
    return !tomcat_remains_after(tomcat_wait);
}

[[nodiscard]] int restart_tomcat(char const* action)
{
    bool const stop = is(action, "stop");
    int const result = rc_script_gen("/etc/init.d/tomcat6", "tomcat6", action, stop ? 0 : 1);
    if (result != 0 && (!stop || !end_tomcat()))
        return result;
    if (stop)
        stop_start_apache();
    return 0;
}

[[nodiscard]] int wait_for_httpd()
{
    for (int probe = 0; probe < httpd_probes; ++probe) {
        if (restart_daemon(httpd_service(), "status") == 0)
            return 0;
        sleep(httpd_wait);
    }
    return -1;
}

[[nodiscard]] int clean_httpd_objects()
{
    char program[path_size];
    bool const fits = form_path(program, "%s/bin/apache_cleanup.sh",
                                orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX));
    if (!fits)
        errno = ENAMETOOLONG;
    // Deliberate: the stop succeeds even if the script is missing or fails.
    if (!fits || system(program) == -1)
        return failure(-1, "Error occured when trying to clean Apache IPC objects: %s\n",
                       strerror(errno));
    return 0;
}

[[nodiscard]] int restart_httpd(char const* wanted)
{
    char const* const action = wanted ? wanted : "graceful";
    // A path that is too long needs no check here: stat of the script fails.
    CString const path(asprintf_safe("/etc/init.d/%s", httpd_service()));
    int result = rc_script(path.get(), action);
    if (result == 0 && (is(action, "start") || is(action, "restart") || is(action, "force-reload")))
        result = wait_for_httpd();
    if (is(action, "stop") && clean_httpd_objects() != 0)
        return -1;
    return result;
}

// The application server's script. Null, reported, when the panel knows of none.
CString application_server_script(char const* daemon)
{
    OpenMysql const db(db_connect());
    if (!db)
        fatal("Unable to connect to the mysql database\n");
    char const* const instance = get_param("cf_instance_path", db.get());
    if (!instance || strlen(instance) <= 1) {
        messlog2(0, 0, "CF not configured in Orvek.\n");
        return nullptr;
    }
    char const* const program = istarts_with(daemon, "jrun") ? "jrun" : "coldfusion";
    return CString(asprintf_safe("%s/bin/%s", instance, program));
}

[[nodiscard]] int restart_application_server(char const* daemon, char const* action)
{
    CString const script = application_server_script(daemon);
    if (!script)
        return -1;
    int const result = rc_script(script.get(), action);
    if (result != 0)
        return result;
    if (!is(action, "status"))
        stop_start_apache();
    return 0;
}

[[nodiscard]] int restart_by_script(char const* daemon, char const* action)
{
    CString const plain(asprintf_safe("/etc/init.d/%s", daemon));
    CString const with_suffix(asprintf_safe("/etc/init.d/%s.sh", daemon));
    char const* const paths[] = {plain.get(), with_suffix.get(), nullptr};
    char const* path = nullptr;
    if (!find_file(&path, paths)) {
        // Tries the first path again: the script may be being replaced just now.
        path = plain.get();
        struct stat info = {};
        if (stat(path, &info) != 0)
            return failure(-1, "Unable to find start/stop script for '%s'\n", daemon);
    }
    return rc_script(path, action);
}

} // namespace

int restart_daemon(char const* daemon, char const* action)
{
    if (orvConfGet("NO_RESTART_DAEMON"))
        return 0;
    if (isempty(daemon))
        return failure(-1, "Unknown service\n");
    if (istarts_with(daemon, "tomcat6"))
        return restart_tomcat(action);
    if (istarts_with(daemon, httpd_service()))
        return restart_httpd(action);
    if (istarts_with(daemon, "coldfusion") || istarts_with(daemon, "jrun"))
        return restart_application_server(daemon, action);
    return restart_by_script(daemon, action);
}

int stop_start_apache()
{
    if (restart_daemon(httpd_service(), "status") != 0)
        return 0;
    return restart_daemon(httpd_service(), "restart");
}

int print_status(int status)
{
    if (status < 0) {
        puts("internal error");
        return -1;
    }
    puts(status == 0 ? "is running" : "is stopped");
    return 0;
}
