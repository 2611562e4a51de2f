The programs of the guide that have their events served by GLib.

  $ snippet_models_glib 60
  5 models
  $ snippet_client_glib
  5 models
  $ svcmgr-emulator ctl silent GetUsableModelList
  $ snippet_models_glib 1
  no answer
  [1]
