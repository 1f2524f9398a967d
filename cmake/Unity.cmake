# With CMAKE_UNITY_BUILD, as in the preset ci, several sources of a room are compiled at once: most of a
# source's compile time is what it includes, and a test's is what gtest makes of it. The sources below
# stay alone, because they give a name of their own to something that another source of their room names
# too. Add one here when such a build finds a name twice and sharing it or calling it otherwise would be worse.

set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)

set(MAILVEK_COMPILED_ALONE
  src/lib/files/libfile.cc
  src/lib/files/libtree.cc
  src/lib/programs/forkexec_getoutput.cc
  src/mail/lib/home/attachments.cc
  src/mail/lib/home/dot_qmail_lines.cc
  src/mail/lib/quota/maildirpp_folders.cc
  src/mail/lib/server/courier_lines.cc
  src/maildir/maildirpp_manager.cc
  tests/unit/commands/nonexistent_mail_test.cc
  tests/unit/lib/files/libfile_test.cc
  tests/unit/lib/host/process_status_test.cc
  tests/unit/lib/panel/dbconnect_test.cc
  tests/unit/lib/panel/get_param_test.cc
  tests/unit/lib/programs/forkexec_getouterr_test.cc
  tests/unit/lib/programs/forkexec_getoutput_test.cc
  tests/unit/lib/programs/forkexec_log_test.cc
  tests/unit/lib/programs/forkexec_test.cc
  tests/unit/lib/programs/popen_exec_test.cc
  tests/unit/lib/programs/rst_serv_panel_test.cc
  tests/unit/lib/programs/rst_serv_test.cc
  tests/unit/mail/lib/accounts/mail_auth_connection_test.cc
  tests/unit/mail/lib/aliases/mail_database_names_test.cc
  tests/unit/mail/lib/aliases/mail_database_panel_test.cc
  tests/unit/mail/lib/aliases/mail_database_test.cc
  tests/unit/mail/lib/aliases/panel_names_test.cc
  tests/unit/mail/lib/server/spf_control_test.cc
  tests/unit/postfix/maps/data_stream_filter_test.cc
  tests/unit/postfix/maps/map_room_test.cc
  tests/unit/postfix/master_cf/master_cf_parser_test.cc
  tests/unit/postfix/master_cf/module_files_test.cc
  tests/unit/postfix/master_cf/module_manager_test.cc)

# Call it in the directory that makes the targets, which is where CMake keeps a source's properties.
function(mailvek_leave_alone)
  list(TRANSFORM MAILVEK_COMPILED_ALONE PREPEND ${CMAKE_SOURCE_DIR}/ OUTPUT_VARIABLE sources)
  set_source_files_properties(${sources} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# A test's fixture is in an anonymous namespace and its tests are not, which GCC only minds in a file
# that is included.
if(CMAKE_UNITY_BUILD)
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
