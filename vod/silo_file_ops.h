// Queries and updates of the record index.
#pragma once

// Makes the index ready. This build keeps no index: there is nothing to make ready.
void silo_db_init();
