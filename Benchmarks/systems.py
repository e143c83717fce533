"""What is measured: each system serves a folder and moves files of it with a client of its own."""

import os

from measure import Process, free_port, wait_for_port


class System:
    """One server and the client that goes with it.

    get and put return the client's command and its standard input; names are files of the folder.
    """

    name = ""
    stops_by_signal = True

    def serve(self, folder, work, count_calls=False, trace=None):
        """Starts the server on a folder; work is for its own files. Returns (Process, port)."""
        port = free_port()
        command = self.command(folder, work, port)
        process = Process(command, count_calls=count_calls, trace=trace)
        wait_for_port(port)
        return process, port

    def command(self, folder, work, port):
        raise NotImplementedError

    def get(self, port, folder, names):
        raise NotImplementedError

    def put(self, port, folder, names):
        raise NotImplementedError


class OwnProgram(System):
    """FileHosts and BarePattern: one program is both ends and tells the port that it listens on."""

    stops_by_signal = False

    def __init__(self, name, program, get="get", put="put"):
        self.name = name
        self._program = program
        self._get = get
        self._put = put

    def serve(self, folder, work, count_calls=False, trace=None):
        command = [self._program, "serve", folder]
        process = Process(command, count_calls=count_calls, trace=trace)
        return process, int(process.read_line())

    def get(self, port, folder, names):
        return [self._program, self._get, str(port), folder], lines(names)

    def put(self, port, folder, names):
        return [self._program, self._put, str(port), folder], lines(names)


class Nginx(System):
    """nginx with WebDAV for uploads, and curl."""

    def __init__(self, name="nginx + curl", connections=512):
        self.name = name
        self._connections = connections  # memory for so many is taken at the start

    def command(self, folder, work, port):
        path = os.path.join(work, "nginx.conf")
        write(
            path,
            f"""daemon off; master_process off; pid {work}/nginx.pid; error_log {work}/nginx.log;
events {{ worker_connections {self._connections}; }}
http {{
    access_log off; sendfile on; tcp_nopush on; keepalive_requests 1000000;
    client_max_body_size 0; client_body_temp_path {folder}/.body; proxy_temp_path {work}/proxy;
    fastcgi_temp_path {work}/fastcgi; uwsgi_temp_path {work}/uwsgi; scgi_temp_path {work}/scgi;
    server {{ listen 127.0.0.1:{port}; root {folder};
              location / {{ dav_methods PUT; }}
              location = /nothing {{ return 204; }} }}
}}
""",
        )
        return ["/usr/sbin/nginx", "-c", path, "-e", f"{work}/nginx.log"]

    def get(self, port, folder, names):
        return CURL, lines(
            f'url = "http://127.0.0.1:{port}/{name}"\noutput = "{folder}/{name}"' for name in names
        )

    def put(self, port, folder, names):
        return [*CURL, "--header", "Expect:"], lines(
            f'url = "http://127.0.0.1:{port}/{name}"\nupload-file = "{folder}/{name}"'
            for name in names
        )


class Vsftpd(System):
    """vsftpd for an anonymous user, and lftp: curl 7.88 lets a second pass after many a file."""

    name = "vsftpd + lftp"

    def command(self, folder, work, port):
        path = os.path.join(work, "vsftpd.conf")
        write(
            path,
            f"""listen=YES
listen_address=127.0.0.1
listen_port={port}
pasv_address=127.0.0.1
background=NO
run_as_launching_user=YES
seccomp_sandbox=NO
isolate=NO
isolate_network=NO
secure_chroot_dir={work}
anonymous_enable=YES
no_anon_password=YES
anon_root={folder}
anon_upload_enable=YES
write_enable=YES
xferlog_enable=NO
""",
        )
        return ["/usr/sbin/vsftpd", path]

    def get(self, port, folder, names):
        return LFTP, lftp_script("get", port, folder, names)

    def put(self, port, folder, names):
        return LFTP, lftp_script("put", port, folder, names)


class Rsync(System):
    """rsync's daemon and rsync, whole files, no delta."""

    name = "rsync"

    def command(self, folder, work, port):
        path = os.path.join(work, "rsyncd.conf")
        stay_root = "uid = 0\ngid = 0" if os.getuid() == 0 else ""  # it would become another user
        write(
            path,
            f"""port = {port}
address = 127.0.0.1
use chroot = no
log file = {work}/rsyncd.log
pid file = {work}/rsyncd.{port}.pid
{stay_root}
[files]
    path = {folder}
    read only = no
""",
        )
        return ["rsync", "--daemon", "--no-detach", f"--config={path}"]

    def get(self, port, folder, names):
        return [*RSYNC, f"rsync://127.0.0.1:{port}/files/", f"{folder}/"], lines(names)

    def put(self, port, folder, names):
        return [*RSYNC, f"{folder}/", f"rsync://127.0.0.1:{port}/files/"], lines(names)


CURL = ["curl", "--silent", "--show-error", "--fail", "--config", "-"]
LFTP = ["lftp", "--norc"]
RSYNC = ["rsync", "--whole-file", "--inplace", "--files-from=-"]


def lftp_script(verb, port, folder, names):
    """Without what lftp asks a server before a transfer, for the others do not ask either."""
    settings = ["cmd:fail-exit yes", "xfer:clobber yes", "xfer:log no", "ftp:use-feat no"]
    settings += ["ftp:use-size no", "ftp:use-mdtm no"]
    return lines(
        [
            *(f"set {setting}" for setting in settings),
            f"open ftp://127.0.0.1:{port}",
            f"lcd {folder}",
            *(f"{verb} {name}" for name in names),
        ]
    )


def lines(texts):
    return "".join(text + "\n" for text in texts)


def write(path, text):
    with open(path, "w") as file:
        file.write(text)
