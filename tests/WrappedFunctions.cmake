# What tests of a layer answer for the system: the linker turns the program's calls of f into
# calls of the tests' __wrap_f, from where the true one is __real_f. A function of the tool
# stands here by the name that it has for the linker. One word a line, so that branches meet.

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
  gethostname)

set(MAILVEK_WRAPPED_layer_lib
  sleep
  ${mysql_spy}
  ${call_faults}
  malloc
  calloc
  realloc
  strdup
  strndup
  asprintf
  fcntl
  fopen
  crypt
  regcomp
  regexec
  ioctl
  openlog
  closelog
  EVP_DigestInit_ex
  idna_to_ascii_8z
  idna_to_unicode_8z8z)

set(MAILVEK_WRAPPED_layer_mail_lib
  ${mysql_spy}
  ${call_faults}
  calloc
  realloc
  strdup
  strndup
  asprintf
  nanosleep
  sleep
  dirname
  getpwnam
  sqlite3_open
  sqlite3_open_v2
  sqlite3_close
  sqlite3_prepare_v2
  sqlite3_bind_text
  sqlite3_bind_int64
  sqlite3_step
  sqlite3_reset
  sqlite3_finalize
  sqlite3_exec
  _Z13asprintf_safePKcz # asprintf_safe
  _Z9form_pathRA4096_cPKcz # form_path
  _Z12make_dir_recPcjjj # make_dir_rec
)

set(MAILVEK_WRAPPED_layer_util
  ${call_faults}
  mmap
  posix_fallocate
  idna_to_ascii_8z
  idna_to_unicode_8z8z)

set(MAILVEK_WRAPPED_layer_process
  close
  fcntl
  fork
  poll
  read
  setsid
  sigaction
  sigprocmask
  write)

set(MAILVEK_WRAPPED_layer_mysql
  ${mysql_spy}
  mysql_fetch_lengths
  _Znam # new of an array
)

set(MAILVEK_WRAPPED_layer_maildir
  chown
  chmod
  stat
  getpwnam)

set(MAILVEK_WRAPPED_layer_postfix
  ${call_faults}
  copy_file_range
  mmap
  sendfile
  sleep)

set(MAILVEK_WRAPPED_layer_commands
  _ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc # printFeatures
)
