# What runs while the library is loaded and left stands first, side by side: a program's start
# then reads a few pages of code in a row instead of one of each corner.
set(QVX_LOAD_SOURCES
  core/module_entry core/sync core/base_thread core/thread_control core/debug_callbacks
  core/debug_output containers/ptr_ctrl containers/ptr_array containers/ptr_list
  delaymsg/delay_message platform/thread platform/event platform/fork platform/clock
  platform/lock platform/futex platform/seam platform/module platform/debug_sink platform/utf
  platform/stack_memory net/payload_blocks delaymsg/message_registry platform/code_page
  platform/path)
list(TRANSFORM QVX_LOAD_SOURCES REPLACE "(.+)" "${CMAKE_CURRENT_SOURCE_DIR}/src/\\1.cpp")
list(REMOVE_ITEM QVX_SOURCES ${QVX_LOAD_SOURCES})
list(PREPEND QVX_SOURCES ${QVX_LOAD_SOURCES})
