# The functions that a room's tests answer themselves: the linker redirects the program's calls of f
# to the tests' __wrap_f, where the original is __real_f. A function of the tool is listed by its
# linker name. One word per line, so that branches merge.

set(mysql_spy
  mysql_init
  mysql_real_connect
  mysql_close
  mysql_real_query
  mysql_store_result
  mysql_free_result
  mysql_fetch_row)

set(call_faults
  open
  close
  closedir
  fclose
  read
  write
  readdir
  opendir
  flock
  stat
  lstat
  fstat
  chown
  lchown
  fchown
  chmod
  fchmod
  fchmodat
  chdir
  fchdir
  getcwd
  unlink
  rmdir
  rename
  getrlimit
  ftruncate
  fsync
  gethostname
  fchownat
  fstatat
  mkdirat
  openat
  renameat
  renameat2
  syscall
  unlinkat
  fcntl
  fork
  poll
  setsid
  sigaction
  sigprocmask)

set(sqlite_spy
  sqlite3_open
  sqlite3_open_v2
  sqlite3_close
  sqlite3_prepare_v2
  sqlite3_bind_text
  sqlite3_bind_int64
  sqlite3_step
  sqlite3_reset
  sqlite3_finalize
  sqlite3_exec)

set(memory_faults
  calloc
  realloc
  strdup
  strndup
  asprintf)

set(MAILVEK_WRAPPED_room_lib_report
  ${memory_faults}
  closelog
  malloc
  openlog)

set(MAILVEK_WRAPPED_room_lib_beneath
  ${call_faults})

set(MAILVEK_WRAPPED_room_lib_text
  ${memory_faults}
  malloc)

set(MAILVEK_WRAPPED_room_lib_names
  ${memory_faults}
  idna_to_ascii_8z
  idna_to_unicode_8z8z
  malloc
  regcomp
  regexec)

set(MAILVEK_WRAPPED_room_lib_host
  ${call_faults}
  ${memory_faults}
  crypt
  ioctl
  malloc)

set(MAILVEK_WRAPPED_room_lib_conf
  ${memory_faults}
  fopen
  malloc)

set(MAILVEK_WRAPPED_room_lib_panel
  ${mysql_spy})

set(MAILVEK_WRAPPED_room_lib_files
  ${call_faults}
  ${memory_faults}
  MD5_Init
  malloc)

set(MAILVEK_WRAPPED_room_lib_programs
  ${mysql_spy}
  ${call_faults}
  ${memory_faults}
  malloc
  sleep)

set(MAILVEK_WRAPPED_room_mail_lib_accounts
  ${sqlite_spy}
  ${memory_faults}
  clock_gettime
  dirname
  getpwnam
  nanosleep)

set(MAILVEK_WRAPPED_room_mail_lib_aliases
  ${mysql_spy}
  ${sqlite_spy}
  ${memory_faults}
  nanosleep
  _Z13asprintf_safePKcz # asprintf_safe
)

set(MAILVEK_WRAPPED_room_mail_lib_handlers
  ${call_faults}
  ${memory_faults}
  _Z12make_dir_recPcjjj # make_dir_rec
  _Z9form_pathRA4096_cPKcz # form_path
)

set(MAILVEK_WRAPPED_room_mail_lib_quota
  ${mysql_spy}
  ${call_faults}
  sleep
  _Z9form_pathRA4096_cPKcz # form_path
)

set(MAILVEK_WRAPPED_room_mail_lib_home
  ${call_faults}
  ${memory_faults})

set(MAILVEK_WRAPPED_room_mail_lib_server
  ${call_faults}
  ${memory_faults}
  sleep)

set(MAILVEK_WRAPPED_room_util
  ${call_faults}
  idna_to_ascii_8z
  idna_to_unicode_8z8z
  mmap
  posix_fallocate)

set(MAILVEK_WRAPPED_room_process
  ${call_faults})

set(MAILVEK_WRAPPED_room_mysql
  ${mysql_spy}
  mysql_fetch_lengths
  _Znam # new of an array
)

set(MAILVEK_WRAPPED_room_restore
  ${mysql_spy})

set(MAILVEK_WRAPPED_room_maildir
  fchmod
  fchownat
  fstatat
  getpwnam)

set(MAILVEK_WRAPPED_room_postfix_maps
  ${call_faults}
  copy_file_range
  ioctl
  mmap
  nanosleep
  sendfile
  setns
  unshare)

set(MAILVEK_WRAPPED_room_postfix_master_cf
  ${call_faults})

set(MAILVEK_WRAPPED_room_postfix_server
  sleep)

set(MAILVEK_WRAPPED_room_commands
  _ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc # printFeatures
)
