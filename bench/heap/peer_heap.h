// peer_heap.h - the peer: Boost.Interprocess's rbtree_best_fit over an external buffer.
#ifndef VORN_BENCH_HEAP_PEER_HEAP_H
#define VORN_BENCH_HEAP_PEER_HEAP_H

#include <boost/interprocess/indexes/iset_index.hpp>
#include <boost/interprocess/managed_external_buffer.hpp>
#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>

namespace heap_bench {

template <class MutexFamily>
using PeerHeap = boost::interprocess::basic_managed_external_buffer<
    char, boost::interprocess::rbtree_best_fit<MutexFamily>, boost::interprocess::iset_index>;

using UnlockedPeer = PeerHeap<boost::interprocess::null_mutex_family>;
using LockedPeer = PeerHeap<boost::interprocess::mutex_family>;

}  // namespace heap_bench

#endif
