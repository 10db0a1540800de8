# The listener benchmark drives VARNClientListenerImpl and the request
# bookkeeping directly, which the shared library keeps hidden: it links the
# static archive of the same objects instead of libvarn_wifihal.so.
set_property(TARGET ${bench_target} PROPERTY LINK_LIBRARIES
  varn_wifihal_testing varn_client_sim benchmark::benchmark Threads::Threads)
