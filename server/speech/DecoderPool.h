#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

struct ps_decoder_s;

namespace vocle::server {

// pocketsphinx decoders are not thread-safe: each is lent to one borrower at a time. A borrower may give
// a decoder back in the middle of an utterance (a stream that was abandoned); the next borrower closes
// that utterance first, so the thread that abandons (the event loop) never pays for a search pass.
class DecoderPool {
  public:
    class Lease {
      public:
        Lease() = default;
        Lease(Lease&& other) noexcept { *this = std::move(other); }
        Lease& operator=(Lease&& other) noexcept;
        ~Lease() { release(); }
        ps_decoder_s* decoder() const { return decoder_; }
        explicit operator bool() const { return decoder_ != nullptr; }
        // The borrower has started an utterance it may not finish.
        void setUtteranceOpen(bool open) { open_ = open; }
        void release();

      private:
        friend class DecoderPool;
        Lease(DecoderPool* pool, ps_decoder_s* decoder) : pool_(pool), decoder_(decoder) {}
        DecoderPool* pool_ = nullptr;
        ps_decoder_s* decoder_ = nullptr;
        bool open_ = false;
    };

    // Takes ownership of `decoders`; `closeUtterance` ends an utterance left open by a borrower.
    DecoderPool(std::vector<ps_decoder_s*> decoders, std::function<void(ps_decoder_s*)> closeUtterance,
                std::function<void(ps_decoder_s*)> freeDecoder);
    ~DecoderPool();
    DecoderPool(const DecoderPool&) = delete;
    DecoderPool& operator=(const DecoderPool&) = delete;

    // Waits until a decoder is free.
    Lease acquire();
    // An empty lease when every decoder is lent out.
    Lease tryAcquire();
    size_t size() const { return all_.size(); }
    size_t idleCount() const;

  private:
    struct Idle {
        ps_decoder_s* decoder;
        bool open;
    };
    Lease prepare(Idle idle);
    void giveBack(ps_decoder_s* decoder, bool open);

    mutable std::mutex mutex_;
    std::condition_variable available_;
    std::vector<Idle> idle_;
    std::vector<ps_decoder_s*> all_;
    std::function<void(ps_decoder_s*)> closeUtterance_;
    std::function<void(ps_decoder_s*)> free_;
};

}  // namespace vocle::server
