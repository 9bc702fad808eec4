#include "speech/DecoderPool.h"

namespace vocle::server {

DecoderPool::Lease& DecoderPool::Lease::operator=(Lease&& other) noexcept {
    if (this != &other) {
        release();
        pool_ = other.pool_;
        decoder_ = other.decoder_;
        open_ = other.open_;
        other.pool_ = nullptr;
        other.decoder_ = nullptr;
        other.open_ = false;
    }
    return *this;
}

void DecoderPool::Lease::release() {
    if (pool_ && decoder_) pool_->giveBack(decoder_, open_);
    pool_ = nullptr;
    decoder_ = nullptr;
    open_ = false;
}

DecoderPool::DecoderPool(std::vector<ps_decoder_s*> decoders,
                         std::function<void(ps_decoder_s*)> closeUtterance,
                         std::function<void(ps_decoder_s*)> freeDecoder)
    : all_(std::move(decoders)), closeUtterance_(std::move(closeUtterance)), free_(std::move(freeDecoder)) {
    for (auto* d : all_) idle_.push_back({d, false});
}

DecoderPool::~DecoderPool() {
    for (auto* d : all_) free_(d);
}

DecoderPool::Lease DecoderPool::acquire() {
    Idle idle{};
    {
        std::unique_lock lock(mutex_);
        available_.wait(lock, [&] { return !idle_.empty(); });
        idle = idle_.back();
        idle_.pop_back();
    }
    return prepare(idle);
}

DecoderPool::Lease DecoderPool::tryAcquire() {
    Idle idle{};
    {
        std::lock_guard lock(mutex_);
        if (idle_.empty()) return {};
        idle = idle_.back();
        idle_.pop_back();
    }
    return prepare(idle);
}

DecoderPool::Lease DecoderPool::prepare(Idle idle) {
    if (idle.open) closeUtterance_(idle.decoder);
    return Lease(this, idle.decoder);
}

size_t DecoderPool::idleCount() const {
    std::lock_guard lock(mutex_);
    return idle_.size();
}

void DecoderPool::giveBack(ps_decoder_s* decoder, bool open) {
    {
        std::lock_guard lock(mutex_);
        idle_.push_back({decoder, open});
    }
    available_.notify_one();
}

}  // namespace vocle::server
