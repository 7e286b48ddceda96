// A test fixture around one store in a private folder, with helpers to fill,
// read and walk it.
#ifndef TESTS_KVS_KVS_FIXTURE_H
#define TESTS_KVS_KVS_FIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "kvs_defs.h"
#include "test_support.h"

using Bytes = std::string;
using Model = std::map<Bytes, Bytes>;

class KvsTest : public ::testing::Test {
 protected:
  KvsTest();

  // Creates the store and fills it with model (one transaction).
  void create(const Model &model = {});
  // Opens the store, failing the test if that fails.
  kvs_service_t open();
  // The whole store, read in a fresh transaction.
  Model contents();

  static kvs_datum_t datum(const Bytes &b) { return {const_cast<char *>(b.data()), static_cast<unsigned>(b.size())}; }
  static Bytes bytes(const kvs_datum_t *d) { return d ? Bytes(static_cast<const char *>(d->ptr), d->siz) : Bytes(); }

  testsupport::TempDir dir_;
  testsupport::FaultScope faults_;
  std::string url_;
};

#endif
